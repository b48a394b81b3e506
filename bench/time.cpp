// The current time as the logger writes it.
#include "bench/bench.h"

#include <dt/foundation.h>
#include <time.h>

namespace {

using bench::use;

constexpr const char *work = "time format";

// A second may pass between two contenders' turns: what is compared is all but the seconds.
std::string without_seconds(const char *text) { return std::string(text, 17); }

struct DtTime {
    void operator()() { use(DTTime_Format(out_, "YYYY/MM/DD HH:MI:SS", 0)); }
    std::string kept() {
        (*this)();
        return without_seconds(out_);
    }
    char out_[40];
};

struct StrftimeTime {
    void operator()() {
        const time_t now = time(nullptr);
        use(strftime(out_, sizeof out_, "%Y/%m/%d %H:%M:%S", localtime(&now)));
    }
    std::string kept() {
        (*this)();
        return without_seconds(out_);
    }
    char out_[40];
};

// Asks for the time and stores the digits of one that is broken down already.
class LimitTime {
public:
    LimitTime() {
        const time_t now = time(nullptr);
        localtime_r(&now, &local_);
    }
    void operator()() {
        use(time(nullptr));
        use(local_);
        put(out_, (local_.tm_year + 1900) / 100);
        put(out_ + 2, local_.tm_year % 100);
        out_[4] = '/';
        put(out_ + 5, local_.tm_mon + 1);
        out_[7] = '/';
        put(out_ + 8, local_.tm_mday);
        out_[10] = ' ';
        put(out_ + 11, local_.tm_hour);
        out_[13] = ':';
        put(out_ + 14, local_.tm_min);
        out_[16] = ':';
        put(out_ + 17, local_.tm_sec);
        use(out_);
    }
    std::string kept() {
        (*this)();
        return without_seconds(out_);
    }

private:
    static void put(char *to, int number) {
        to[0] = static_cast<char>('0' + number / 10);
        to[1] = static_cast<char>('0' + number % 10);
    }

    tm local_;
    char out_[40] = "";
};

const bench::Family time_family([] {
    bench::contend<DtTime>(work, bench::libdt);
    bench::contend<LimitTime>(work, bench::limit);
    bench::contend<StrftimeTime>(work, "strftime");
});

} // namespace
