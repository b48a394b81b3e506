// A ring buffer in shared memory that overwrites its oldest chunks.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <qb/qbrb.h>
#include <stdexcept>
#include <unistd.h>

namespace {

using namespace bench;

class Ring {
public:
    Ring(size_t value_size, uint32_t flags) : source_(value_size), flags_(flags) {
        open();
        fill();
    }
    Ring(const Ring &) = delete;
    ~Ring() { qb_rb_close(ring_); }

    void operator()() {
        source_.next();
        const size_t size = Source::key_size + source_.size();
        uint8_t *chunk = static_cast<uint8_t *>(qb_rb_chunk_alloc(ring_, size));
        memcpy(chunk, source_.key(), Source::key_size);
        memcpy(chunk + Source::key_size, source_.value(), source_.size());
        qb_rb_chunk_commit(ring_, size);
    }

    // Reading takes the records out and does not go together with overwriting.
    std::string kept() {
        qb_rb_close(ring_);
        open();
        source_.restart();
        for (size_t i = 0; i < checked; ++i) (*this)();
        std::vector<std::string> records;
        std::string chunk(2 * ring_size, '\0');
        ssize_t size;
        while ((size = qb_rb_chunk_read(ring_, chunk.data(), chunk.size(), 0)) > 0)
            records.push_back(chunk.substr(0, static_cast<size_t>(size)));
        qb_rb_close(ring_);
        open();
        fill();
        return newest(records);
    }

private:
    void open() {
        static int rings = 0;
        const std::string name =
            "dt-bench-" + std::to_string(getpid()) + "-" + std::to_string(++rings);
        ring_ = qb_rb_open(name.c_str(), ring_size,
                           flags_ | QB_RB_FLAG_CREATE | QB_RB_FLAG_OVERWRITE, 0);
        if (!ring_) throw std::runtime_error("no ring of libqb");
    }

    void fill() {
        for (size_t i = 0; i < 2 * ring_size / source_.size(); ++i) (*this)();
    }

    Source source_;
    uint32_t flags_;
    qb_ringbuffer_t *ring_;
};

// As it is by default, with a semaphore that counts the chunks, and without one.
const Family qb([] {
    for (const size_t size : value_sizes) {
        const std::string work = with_size("store append", size);
        contend<Ring>(work, "libqb", size, 0u);
        contend<Ring>(work, "libqb unlocked", size, QB_RB_FLAG_NO_SEMAPHORE);
        contend<Ring>(work + ", traced", "libqb", size, 0u);
    }
});

} // namespace
