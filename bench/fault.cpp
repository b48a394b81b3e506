// A fault's counter, and the fault log file.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <dt/fault.h>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace bench;

constexpr size_t counter_record = 3 + 2 + 8;

// Both append a number and a value, 8 bytes, under a 2-byte key to a store of the fault store's
// size that has wrapped.
template <class Work> class Counter {
public:
    Counter() {
        DTInfo_SetTrace(0);
        for (size_t i = 0; i < DTFAULT_STORE_SIZE / counter_record + 1000; ++i) (*this)();
    }

    void begin() { DTInfo_SetTrace(0); }
    void operator()() { work_.append(++value_); }

    std::string kept() {
        value_ = 0;
        (*this)();
        std::string newest;
        uint32_t pos = DTINFO_FIRST;
        const uint8_t *data;
        uint16_t size;
        while (DTInfo_Get(work_.store(), nullptr, 0, &pos, nullptr, nullptr, &data, &size))
            newest.assign(data, data + size);
        return newest;
    }

private:
    Work work_;
    uint32_t value_ = 0;
};

class DtCounter {
public:
    void append(uint32_t value) { DTFault_SetCounter(fault_, 7, value); }
    DTInfo *store() const { return g_DTFault_Info; }

private:
    DTFault *fault_ = DTFault_Regist("counter", nullptr);
};

class DtAppend8 {
public:
    DtAppend8() = default;
    DtAppend8(const DtAppend8 &) = delete;
    ~DtAppend8() { DTInfo_Release(store_); }

    void append(uint32_t value) {
        const uint32_t data[] = {7, value};
        DTInfo_Append(store_, "\3", 2, data, sizeof data);
    }
    DTInfo *store() const { return store_; }

private:
    DTInfo *store_ = DTInfo_New(DTFAULT_STORE_SIZE);
};

// 100,000 entries: the stamps and texts of a quarter as many lines in each of the faults' run logs.
class DtFaultLog {
public:
    DtFaultLog() {
        DTInfo_SetTrace(0);
        for (int i = 0; i < log_faults; ++i) {
            DTFault *fault = DTFault_Regist("pump", nullptr);
            for (int line = 0; line < log_entries / log_faults / 2; ++line)
                DTFault_SetRunLog(fault, 1, 0, line_of_40);
        }
    }

    DtFaultLog(const DtFaultLog &) = delete;
    ~DtFaultLog() { unlink(fault_log_path()); }

    // The pass drops the fault store, which others still need.
    void operator()() {
        DTInfo *store = std::exchange(g_DTFault_Info, nullptr);
        DTFault_Start();
        g_DTFault_Info = store;
    }

    std::string kept() {
        (*this)();
        return file_content(fault_log_path());
    }
};

// The same bytes, in one write.
class LimitFaultLog {
public:
    LimitFaultLog() : bytes_(file_content(fault_log_path())) {}
    LimitFaultLog(const LimitFaultLog &) = delete;
    ~LimitFaultLog() { unlink(path); }

    void operator()() {
        const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        use(write(fd, bytes_.data(), bytes_.size()));
        close(fd);
    }

    std::string kept() {
        (*this)();
        return file_content(path);
    }

private:
    static constexpr const char *path = "/dev/shm/dt-bench-limit.log";
    std::string bytes_;
};

const Family fault([] {
    contend<Counter<DtCounter>>("fault counter", libdt);
    contend<Counter<DtAppend8>>("fault counter", "append of 8 bytes");
    contend<DtFaultLog>("fault log file", libdt);
    contend<LimitFaultLog>("fault log file", limit);
});

} // namespace
