// Packing and unpacking by a format text.
#include "bench/bench.h"
#include "bench/frame.h"

#include <dt/records.h>

namespace {

using namespace bench;

class Writer {
public:
    explicit Writer(uint8_t *to) : to_(to) {}

    template <typename T> void put(T value) {
        memcpy(to_, &value, sizeof value);
        to_ += sizeof value;
    }
    void put(const char *bytes, size_t count) {
        memcpy(to_, bytes, count);
        to_ += count;
    }

private:
    uint8_t *to_;
};

class Reader {
public:
    explicit Reader(const uint8_t *from) : from_(from) {}

    template <typename T> void get(T *value) {
        memcpy(value, from_, sizeof *value);
        from_ += sizeof *value;
    }
    void get(char *bytes, size_t count) {
        memcpy(bytes, from_, count);
        bytes[count] = '\0';
        from_ += count;
    }

private:
    const uint8_t *from_;
};

// The fields stored and loaded one behind the other, without a format text.
template <bool with_bytes> void store(const Frame &frame, uint8_t *to) {
    Writer writer(to);
    writer.put(frame.tag);
    writer.put(frame.index);
    writer.put(frame.section);
    writer.put(frame.key);
    if (!with_bytes) return writer.put(frame.value);
    writer.put(frame.length);
    writer.put(frame.bytes, frame_bytes);
}

template <bool with_bytes> void load(Frame *frame, const uint8_t *from) {
    Reader reader(from);
    reader.get(&frame->tag);
    reader.get(&frame->index);
    reader.get(&frame->section);
    reader.get(&frame->key);
    if (!with_bytes) return reader.get(&frame->value);
    reader.get(&frame->length);
    reader.get(frame->bytes, frame_bytes);
}

template <bool with_bytes> void dt_store(const Frame &frame, uint8_t *to) {
    if (with_bytes)
        DTBuffer_Pack(to, "BIIIH100s", frame.tag, frame.index, frame.section, frame.key,
                      frame.length, frame.bytes);
    else
        DTBuffer_Pack(to, "BIIII", frame.tag, frame.index, frame.section, frame.key, frame.value);
}

template <bool with_bytes> void dt_load(Frame *frame, const uint8_t *from) {
    if (with_bytes)
        DTBuffer_UNPack("BIIIH100s", from, &frame->tag, &frame->index, &frame->section, &frame->key,
                        &frame->length, frame->bytes);
    else
        DTBuffer_UNPack("BIIII", from, &frame->tag, &frame->index, &frame->section, &frame->key,
                        &frame->value);
}

// The contents are another each time for all that the compiler knows.
template <bool with_bytes, void (&pack)(const Frame &, uint8_t *)> class Pack {
public:
    void operator()() {
        use(frame_);
        pack(frame_, packed_);
        use(packed_);
    }
    std::string kept() {
        (*this)();
        Frame read;
        load<with_bytes>(&read, packed_);
        return read.text(with_bytes);
    }

private:
    Frame frame_ = sample_frame();
    uint8_t packed_[200];
};

template <bool with_bytes, void (&unpack)(Frame *, const uint8_t *)> class Unpack {
public:
    Unpack() { store<with_bytes>(sample_frame(), packed_); }

    void operator()() {
        use(packed_);
        unpack(&frame_, packed_);
        use(frame_);
    }
    std::string kept() {
        frame_ = {};
        (*this)();
        return frame_.text(with_bytes);
    }

private:
    Frame frame_;
    uint8_t packed_[200];
};

template <bool with_bytes> void add(const char *packing, const char *unpacking) {
    contend<Pack<with_bytes, store<with_bytes>>>(packing, limit);
    contend<Pack<with_bytes, dt_store<with_bytes>>>(packing, libdt);
    contend<Unpack<with_bytes, load<with_bytes>>>(unpacking, limit);
    contend<Unpack<with_bytes, dt_load<with_bytes>>>(unpacking, libdt);
}

const Family pack([] {
    add<false>(pack_ints, unpack_ints);
    add<true>(pack_bytes, unpack_bytes);
});

} // namespace
