// Parsing into a message that is used again.
#include "bench/bench.h"
#include "bench/frame.h"

#include <frame.pb.h>

namespace {

using namespace bench;

void set_fifth(bench_proto::Ints *message, const Frame &frame) { message->set_value(frame.value); }

void set_fifth(bench_proto::WithBytes *message, const Frame &frame) {
    message->set_data(frame.bytes, frame.length);
}

void get_fifth(const bench_proto::Ints &message, Frame *frame) { frame->value = message.value(); }

void get_fifth(const bench_proto::WithBytes &message, Frame *frame) {
    memcpy(frame->bytes, message.data().data(), message.data().size());
}

template <class Message, bool with_bytes> class Unpack {
public:
    Unpack() {
        const Frame frame = sample_frame();
        Message message;
        message.set_tag(frame.tag);
        message.set_index(frame.index);
        message.set_section(frame.section);
        message.set_key(frame.key);
        set_fifth(&message, frame);
        packed_ = message.SerializeAsString();
    }

    void operator()() {
        use(packed_);
        message_.ParseFromArray(packed_.data(), static_cast<int>(packed_.size()));
        use(message_);
    }

    std::string kept() {
        (*this)();
        Frame read;
        read.tag = static_cast<uint8_t>(message_.tag());
        read.index = message_.index();
        read.section = message_.section();
        read.key = message_.key();
        get_fifth(message_, &read);
        return read.text(with_bytes);
    }

private:
    std::string packed_;
    Message message_;
};

const Family protobuf([] {
    contend<Unpack<bench_proto::Ints, false>>(unpack_ints, "protobuf-lite");
    contend<Unpack<bench_proto::WithBytes, true>>(unpack_bytes, "protobuf-lite");
});

} // namespace
