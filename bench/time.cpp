// The current time as the logger writes it.
#include "bench/bench.h"

#include <dt/foundation.h>
#include <time.h>

namespace {

using bench::use;

// What is compared is not the current time: a second may pass from one contender to the next.
constexpr time_t compared = 1700000000;

const char *by_libdt(char (&out)[40], time_t time) {
    return DTTime_Format(out, "YYYY/MM/DD HH:MI:SS", time);
}

const char *by_strftime(char (&out)[40], time_t time) {
    strftime(out, sizeof out, "%Y/%m/%d %H:%M:%S", localtime(&time));
    return out;
}

template <const char *(&format)(char (&)[40], time_t)> class Now {
public:
    void operator()() { use(format(out_, time(nullptr))); }
    std::string kept() { return format(out_, compared); }

private:
    char out_[40];
};

// Each call another second: no text that was kept serves.
template <const char *(&format)(char (&)[40], time_t)> class Other {
public:
    void operator()() { use(format(out_, ++time_)); }
    std::string kept() { return format(out_, compared); }

private:
    time_t time_ = compared;
    char out_[40];
};

// Asks for the time and stores the digits of one that is broken down already.
class LimitTime {
public:
    LimitTime() { localtime_r(&compared, &local_); }

    void operator()() {
        use(time(nullptr));
        use(local_);
        use(text());
    }
    std::string kept() { return text(); }

private:
    const char *text() {
        put(out_, (local_.tm_year + 1900) / 100);
        put(out_ + 2, local_.tm_year % 100);
        put(out_ + 5, local_.tm_mon + 1);
        put(out_ + 8, local_.tm_mday);
        put(out_ + 11, local_.tm_hour);
        put(out_ + 14, local_.tm_min);
        put(out_ + 17, local_.tm_sec);
        return out_;
    }

    static void put(char *to, int number) {
        to[0] = static_cast<char>('0' + number / 10);
        to[1] = static_cast<char>('0' + number % 10);
    }

    tm local_;
    char out_[20] = "    /  /     :  :  ";
};

const bench::Family time_family([] {
    bench::contend<Now<by_libdt>>("time format", bench::libdt);
    bench::contend<LimitTime>("time format", bench::limit);
    bench::contend<Now<by_strftime>>("time format", "strftime");
    bench::contend<Other<by_libdt>>("time format, another time", bench::libdt);
    bench::contend<Other<by_strftime>>("time format, another time", "strftime");
});

} // namespace
