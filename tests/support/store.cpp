#include "support/store.h"

#include <gtest/gtest.h>

Records records_of(DTInfo *store, const std::string &key) {
    Records all;
    uint32_t pos = DTINFO_FIRST;
    const uint8_t *rec_key, *value;
    uint8_t key_len;
    uint16_t value_len;
    const void *filter = key.empty() ? nullptr : key.data();
    while (DTInfo_Get(store, filter, static_cast<uint8_t>(key.size()), &pos, &rec_key, &key_len,
                      &value, &value_len)) {
        all.emplace_back(std::string(rec_key, rec_key + key_len),
                         std::string(value, value + value_len));
        if (all.size() > 100000) {
            ADD_FAILURE() << "a walk without an end";
            break;
        }
    }
    return all;
}

void expect_sound(DTInfo *store) {
    const uint32_t size = store->memory->size;
    const bool wrapped = store->free_addr <= store->use_addr && store->free_size <= store->use_addr;
    EXPECT_EQ(size % 1024, 0u);
    EXPECT_LE(store->free_addr, size);
    EXPECT_EQ(store->free_size, (wrapped ? store->use_addr : size) - store->free_addr);
    size_t used = 0;
    for (const auto &[key, value] : records_of(store)) used += key.size() + value.size() + 3;
    // What is not used is filled, so every live record was walked. Test values hold no such byte
    // themselves.
    size_t filled = 0;
    for (uint32_t at = 0; at < size; ++at)
        filled += *static_cast<uint8_t *>(DTMem_Get(store->memory, at)) == 0xFF;
    EXPECT_EQ(used + filled, size);
}
