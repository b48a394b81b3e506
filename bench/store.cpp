// Appending to a full record store, and walking it.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <dt/records.h>

namespace {

using namespace bench;

// Copies each record's bytes and nothing else.
class LimitRing {
public:
    explicit LimitRing(size_t value_size) : source_(value_size), ring_(ring_size) {}

    void operator()() {
        source_.next();
        const uint16_t size = source_.size();
        if (ring_size - at_ < 3u + Source::key_size + size) at_ = 0;
        uint8_t *to = ring_.data() + at_;
        *to = Source::key_size;
        memcpy(to + 1, source_.key(), Source::key_size);
        memcpy(to + 3, &size, sizeof size);
        memcpy(to + 5, source_.value(), size);
        at_ += 3u + Source::key_size + size;
        use(to);
    }

    std::string kept() {
        source_.restart();
        at_ = 0;
        for (size_t i = 0; i < checked; ++i) (*this)();
        std::vector<std::string> records;
        for (size_t at = 0; at < at_; at += 5u + source_.size())
            records.emplace_back(ring_.begin() + static_cast<ptrdiff_t>(at + 1), record_end(at));
        for (std::string &record : records) record.erase(2, 2); // the value's length
        return newest(records);
    }

protected:
    std::vector<uint8_t>::iterator record_end(size_t at) {
        return ring_.begin() + static_cast<ptrdiff_t>(at + 5 + source_.size());
    }

    Source source_;
    std::vector<uint8_t> ring_;
    size_t at_ = 0;
};

class DtStore {
public:
    explicit DtStore(size_t value_size, bool traced = false)
        : source_(value_size), traced_(traced), store_(DTInfo_New(ring_size)) {
        DTInfo_SetTrace(0);
        const size_t laps = 2 * ring_size / (5 + value_size);
        for (size_t i = 0; i < laps; ++i) (*this)();
    }
    DtStore(const DtStore &) = delete;
    ~DtStore() { DTInfo_Release(store_); }

    void begin() { DTInfo_SetTrace(traced_); }

    void operator()() {
        source_.next();
        DTInfo_Append(store_, source_.key(), Source::key_size, source_.value(), source_.size());
    }

    std::string kept() {
        source_.restart();
        for (size_t i = 0; i < checked; ++i) (*this)();
        std::vector<std::string> records;
        uint32_t pos = DTINFO_FIRST;
        const uint8_t *key, *value;
        uint8_t key_size;
        uint16_t size;
        while (DTInfo_Get(store_, nullptr, 0, &pos, &key, &key_size, &value, &size))
            records.push_back(std::string(key, key + key_size).append(value, value + size));
        return newest(records);
    }

protected:
    Source source_;
    bool traced_;
    DTInfo *store_;
};

// Full of records, for a walk.
struct LimitRecords : LimitRing {
    LimitRecords() : LimitRing(walked_value) {
        for (size_t i = 0; i < walked_records; ++i) (*this)();
    }

    Walked walk(const char *filter) const {
        Walked walked;
        for (size_t at = 0; at < at_;) {
            const uint8_t *record = ring_.data() + at;
            const uint8_t *value = record + 3 + record[0];
            uint16_t size;
            memcpy(&size, value - 2, sizeof size);
            if (!filter || memcmp(record + 1, filter, Source::key_size) == 0)
                walked.add(value, size);
            at += 3u + record[0] + size;
        }
        return walked;
    }
};

// Likewise, in a ring that has wrapped.
struct DtRecords : DtStore {
    DtRecords() : DtStore(walked_value) {
        source_.restart();
        for (size_t i = 0; i < walked_records; ++i) (*this)();
    }

    Walked walk(const char *filter) const {
        Walked walked;
        uint32_t pos = DTINFO_FIRST;
        const uint8_t *value;
        uint16_t size;
        while (DTInfo_Get(store_, filter, filter ? Source::key_size : 0, &pos, nullptr, nullptr,
                          &value, &size))
            walked.add(value, size);
        return walked;
    }
};

const Family store([] {
    for (const size_t size : value_sizes) {
        const std::string work = with_size("store append", size);
        contend<LimitRing>(work, limit, size);
        contend<DtStore>(work, libdt, size, false);
        contend<DtStore>(work + ", traced", libdt, size, true);
    }
    contend<Walk<LimitRecords>>("store walk", limit, nullptr);
    contend<Walk<DtRecords>>("store walk", libdt, nullptr);
    contend<Walk<LimitRecords>>("store walk by key", limit, "ka");
    contend<Walk<DtRecords>>("store walk by key", libdt, "ka");
});

} // namespace
