// What a record store must hold, and whether it keeps its own rules.
#pragma once

#include "support/story.h"

#include <algorithm>
#include <deque>
#include <string>
#include <utility>
#include <vector>

using Records = std::vector<std::pair<std::string, std::string>>; // key and value, oldest first

inline int32_t append(DTInfo *store, const std::string &key, const std::string &value) {
    return DTInfo_Append(store, key.data(), static_cast<uint8_t>(key.size()), value.data(),
                         static_cast<uint16_t>(value.size()));
}

// What the ring must hold and where, oldest first: what lies from the write position on is still of
// the lap before.
struct LapModel {
    explicit LapModel(size_t bytes) : size(bytes) {}

    void append(const std::string &key, const std::string &value) {
        const size_t needed = key.size() + value.size() + 3;
        while (at + needed > (older() ? offsets.front() : size)) {
            if (!older()) at = 0; // now all are, and the first is in the way
            offsets.pop_front();
            held.pop_front();
        }
        offsets.push_back(at);
        held.emplace_back(key, value);
        at += needed;
    }
    bool older() const { return !offsets.empty() && offsets.front() >= at; }
    Records records() const { return {held.begin(), held.end()}; }

    size_t size, at = 0;
    std::deque<size_t> offsets;
    std::deque<std::pair<std::string, std::string>> held;
};

// The records that a walk from a position on finds; no more than most.
inline Records walk(DTInfo *store, const std::string &key, uint32_t pos, size_t most) {
    Records all;
    const uint8_t *rec_key, *value;
    uint8_t key_len;
    uint16_t value_len;
    const void *filter = key.empty() ? nullptr : key.data();
    while (all.size() < most && DTInfo_Get(store, filter, static_cast<uint8_t>(key.size()), &pos,
                                           &rec_key, &key_len, &value, &value_len))
        all.emplace_back(std::string(rec_key, rec_key + key_len),
                         std::string(value, value + value_len));
    return all;
}

// What is wrong with a store; null while every byte of the block is part of a live record or free,
// and the positions and sizes agree. What is not used is filled, so every live record was walked:
// keys and values must hold no such byte themselves.
inline const char *fault_of(DTInfo *store) {
    const size_t size = store->memory->size;
    const uint8_t *block = static_cast<const uint8_t *>(DTMem_Get(store->memory, 0));
    const bool wrapped = store->free_addr <= store->use_addr && store->free_size <= store->use_addr;
    if (size % 1024 != 0) return "a block of odd size";
    if (store->free_addr > size) return "the write position lies behind the block";
    if (store->free_size != (wrapped ? store->use_addr : size) - store->free_addr)
        return "a free size that does not agree with the positions";
    size_t used = 0;
    for (const auto &[key, value] : walk(store, "", DTINFO_FIRST, size))
        used += key.size() + value.size() + 3;
    const auto filled = static_cast<size_t>(std::count(block, block + size, 0xFF));
    return used + filled == size ? nullptr : "bytes that are neither free nor of a live record";
}

inline Records records_of(DTInfo *store, const std::string &key = "") {
    constexpr size_t most = 100000;
    const Records all = walk(store, key, DTINFO_FIRST, most);
    EXPECT_LT(all.size(), most) << "a walk without an end";
    return all;
}

// Records are stamped with a Sunday evening, and stores do not report their growth.
struct RecordsTest : testing::Test {
    RecordsTest() {
        fake_clock.stand_at(a_sunday_evening);
        DTInfo_SetTrace(0);
    }
};
