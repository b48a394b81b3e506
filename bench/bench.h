// What every family of measured work builds on: contenders and their registration.
#pragma once

#include <functional>
#include <memory>
#include <stdint.h>
#include <string>
#include <type_traits>
#include <vector>

namespace bench {

// The name of libdt among the contenders, and of the least work that anybody must do.
constexpr const char *libdt = "libdt";
constexpr const char *limit = "limit";

// Keeps the compiler from dropping work whose result nobody reads, and from knowing it beforehand.
template <typename T> inline void use(const T &value) {
    if constexpr (std::is_scalar_v<T>)
        asm volatile("" : : "r"(value) : "memory");
    else
        asm volatile("" : : "r"(&value) : "memory");
}

// A contender is a class of its own. Its constructor brings it to the steady state, and
//   void operator()()          does the work once;
//   std::string kept()         does it some times from a known start and answers what is left of
//   it,
//                              which must be the same for all who contend for that work;
//   void begin()               optional: before each series of calls, outside the time;
//   void prepare()             optional: before each call, outside the time;
//   static constexpr threads   optional, true: threads of the contender's own do part of the work;
//   size_t operations() const  optional: what one call counts for; 1 without it.
class Contender {
public:
    virtual ~Contender() = default;
    virtual void begin() = 0;
    virtual bool prepares() const = 0;
    virtual void prepare() = 0;
    virtual void repeat(uint64_t calls) = 0; // without prepare
    virtual std::string kept() = 0;
    virtual bool has_threads() const = 0;
    virtual size_t operations() const = 0;
};

template <class Work> class Holder final : public Contender {
public:
    template <class... Args> explicit Holder(const Args &...args) : work_(args...) {}

    void begin() override {
        if constexpr (requires { work_.begin(); }) work_.begin();
    }
    bool prepares() const override {
        return requires(Work work) { work.prepare(); };
    }
    void prepare() override {
        if constexpr (requires { work_.prepare(); }) work_.prepare();
    }
    void repeat(uint64_t calls) override {
        for (; calls > 0; --calls) work_();
    }
    std::string kept() override {
        begin();
        return work_.kept();
    }
    bool has_threads() const override {
        return requires { Work::threads; };
    }
    size_t operations() const override {
        if constexpr (requires { work_.operations(); }) return work_.operations();
        return 1;
    }

private:
    Work work_;
};

struct Entry {
    std::string work;
    std::string who;
    std::function<std::unique_ptr<Contender>()> make;
};

// All contenders for all work, in the order of their registration.
inline std::vector<Entry> &entries() {
    static std::vector<Entry> all;
    return all;
}

template <class Work, class... Args>
void contend(const std::string &work, const std::string &who, Args... args) {
    entries().push_back({work, who, [=] { return std::make_unique<Holder<Work>>(args...); }});
}

// Registers what one file measures: const bench::Family store([] { bench::contend<...>(...); });
struct Family {
    explicit Family(void (*add)()) { add(); }
};

} // namespace bench
