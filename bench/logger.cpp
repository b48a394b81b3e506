// A line of 40 characters in a logger: its stamp and its text, as two records.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <dt/records.h>
#include <time.h>

namespace {

using namespace bench;

constexpr size_t stamp_size = 19;

// Asks for the time and copies both records; the stamp is there already.
class LimitLog {
public:
    LimitLog() : ring_(ring_size) {}

    void operator()() {
        const time_t now = time(nullptr);
        use(now);
        put(stamp_, stamp_size);
        put(line_of_40, strlen(line_of_40));
    }

    std::string kept() {
        (*this)();
        return std::string(newest_, newest_ + strlen(line_of_40));
    }

private:
    void put(const char *text, size_t length) {
        const uint16_t size = static_cast<uint16_t>(length);
        if (ring_size - at_ < 4 + length) at_ = 0;
        uint8_t *to = ring_.data() + at_;
        newest_ = to + 4;
        to[0] = 1;
        to[1] = 'l';
        memcpy(to + 2, &size, sizeof size);
        memcpy(to + 4, text, length);
        at_ += 4 + length;
        use(to);
    }

    char stamp_[stamp_size + 1] = "2026/01/01 00:00:00";
    std::vector<uint8_t> ring_;
    size_t at_ = 0;
    const uint8_t *newest_ = nullptr;
};

class DtLog {
public:
    DtLog() : log_(DTLogger_New(255)) {
        DTInfo_SetTrace(0);
        for (size_t i = 0; i < 2 * ring_size / (8 + stamp_size + strlen(line_of_40)); ++i)
            (*this)();
    }
    DtLog(const DtLog &) = delete;
    ~DtLog() { DTLogger_Release(log_); }

    void begin() { DTInfo_SetTrace(0); }
    void operator()() { DTLogger_Write(log_, 1, line_of_40); }

    std::string kept() {
        (*this)();
        std::string last;
        uint32_t pos = DTINFO_FIRST;
        const uint8_t *value;
        uint16_t size;
        while (DTInfo_Get(log_->info, nullptr, 0, &pos, nullptr, nullptr, &value, &size))
            last.assign(value, value + size);
        return last;
    }

private:
    DTLogger *log_;
};

const Family logger([] {
    contend<LimitLog>("logger line", limit);
    contend<DtLog>("logger line", libdt);
});

} // namespace
