// Packing into a buffer that is used again.
#include "bench/bench.h"
#include "bench/frame.h"

#include <msgpack.h>

namespace {

using namespace bench;

template <bool with_bytes> class Pack {
public:
    Pack() {
        msgpack_sbuffer_init(&buffer_);
        msgpack_packer_init(&packer_, &buffer_, msgpack_sbuffer_write);
    }
    Pack(const Pack &) = delete;
    ~Pack() { msgpack_sbuffer_destroy(&buffer_); }

    void operator()() {
        use(frame_);
        msgpack_sbuffer_clear(&buffer_);
        msgpack_pack_array(&packer_, 5);
        msgpack_pack_uint8(&packer_, frame_.tag);
        msgpack_pack_uint32(&packer_, frame_.index);
        msgpack_pack_uint32(&packer_, frame_.section);
        msgpack_pack_uint32(&packer_, frame_.key);
        if (with_bytes)
            msgpack_pack_bin_with_body(&packer_, frame_.bytes, frame_.length);
        else
            msgpack_pack_uint32(&packer_, frame_.value);
        use(buffer_);
    }

    std::string kept() {
        (*this)();
        msgpack_unpacked result;
        msgpack_unpacked_init(&result);
        msgpack_unpack_next(&result, buffer_.data, buffer_.size, nullptr);
        const msgpack_object *fields = result.data.via.array.ptr;
        Frame read;
        read.tag = static_cast<uint8_t>(fields[0].via.u64);
        read.index = static_cast<uint32_t>(fields[1].via.u64);
        read.section = static_cast<uint32_t>(fields[2].via.u64);
        read.key = static_cast<uint32_t>(fields[3].via.u64);
        if (with_bytes)
            memcpy(read.bytes, fields[4].via.bin.ptr, fields[4].via.bin.size);
        else
            read.value = static_cast<uint32_t>(fields[4].via.u64);
        msgpack_unpacked_destroy(&result);
        return read.text(with_bytes);
    }

private:
    Frame frame_ = sample_frame();
    msgpack_sbuffer buffer_;
    msgpack_packer packer_;
};

const Family msgpack([] {
    contend<Pack<false>>(pack_ints, "msgpack");
    contend<Pack<true>>(pack_bytes, "msgpack");
});

} // namespace
