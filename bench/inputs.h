// What the work is done on, the same for all contenders.
#pragma once

#include "bench/bench.h"

#include <array>
#include <sstream>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

namespace bench {

inline std::string with_size(const std::string &work, size_t size, const char *unit = "bytes") {
    return work + ", " + std::to_string(size) + " " + unit;
}

// ---- stores ----

constexpr size_t ring_size = 1 << 20;
constexpr std::array<size_t, 4> value_sizes = {8, 32, 100, 1000};
constexpr size_t walked_value = 32;
constexpr size_t checked = 100; // records that are compared, the newest

// Records with a 2-byte key and a value of a given size, in turn. Nothing is written in between: a
// copy that waits for it would take longer than the copy.
class Source {
public:
    explicit Source(size_t value_size) : size_(value_size), values_(different * value_size) {
        for (size_t i = 0; i < values_.size(); ++i) values_[i] = static_cast<uint8_t>(i * 31 >> 3);
    }

    void restart() { number_ = 0; }
    void next() { number_ = (number_ + 1) % different; }
    const char *key() const { return number_ % 2 == 0 ? "ka" : "kb"; }
    const uint8_t *value() const { return values_.data() + number_ * size_; }
    uint16_t size() const { return static_cast<uint16_t>(size_); }

    static constexpr uint8_t key_size = 2;

private:
    static constexpr size_t different = 16;

    size_t size_;
    size_t number_ = 0;
    std::vector<uint8_t> values_;
};

// The newest records, as one text.
inline std::string newest(const std::vector<std::string> &records) {
    std::string all;
    const size_t count = records.size() < checked ? records.size() : checked;
    for (size_t i = records.size() - count; i < records.size(); ++i) all += records[i];
    return all;
}

// Records in a full ring, by the layout of the record store.
constexpr size_t walked_records = ring_size / (3 + Source::key_size + walked_value);

// What a walk finds: how many records, and a byte of each.
struct Walked {
    uint64_t records = 0;
    uint64_t bytes = 0;

    void add(const uint8_t *value, size_t size) {
        ++records;
        bytes += size + value[0];
    }
    std::string text() const { return std::to_string(records) + " " + std::to_string(bytes); }
};

// A walk over all records, or over those with one of the two keys.
template <class Records> class Walk {
public:
    explicit Walk(const char *filter) : filter_(filter) {}

    void operator()() {
        walked_ = records_.walk(filter_);
        use(walked_);
    }
    std::string kept() {
        (*this)();
        return walked_.text();
    }
    size_t operations() const { return walked_records; }

private:
    const char *filter_;
    Records records_;
    Walked walked_;
};

// ---- lines of text ----

inline const char *const line_of_40 = "pump 3: pressure 4.2 bar, 1480 rpm, on..";

// ---- lists ----

constexpr std::array<size_t, 3> list_lengths = {10, 100, 1000};

// ---- hash tables ----

constexpr size_t hash_entries = 1000;
constexpr uint32_t hash_buckets = 1009;
constexpr std::array<size_t, 3> key_sizes = {4, 16, 40};

template <size_t N> using Key = std::array<uint8_t, N>;

// Different keys, and the same for all contenders; the i-th has the value i.
template <size_t N> std::vector<Key<N>> hash_keys() {
    std::vector<Key<N>> keys(hash_entries);
    uint32_t state = 1;
    for (Key<N> &key : keys)
        for (uint8_t &byte : key)
            byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    return keys;
}

inline uint32_t cheap_hash(const void *key) {
    uint32_t word;
    memcpy(&word, key, sizeof word);
    return word;
}

// ---- tables ----

struct TableSize {
    int rows, columns;

    std::string text() const { return std::to_string(rows) + " x " + std::to_string(columns); }
    size_t cells() const { return static_cast<size_t>(rows) * static_cast<size_t>(columns); }
};

constexpr std::array<TableSize, 3> table_sizes = {{{20, 5}, {1000, 10}, {10000, 10}}};

enum class Cell { text, int32, real, int64, wide };

inline Cell cell_type(int column) { return static_cast<Cell>(column % 5); }
inline int32_t cell_number(int row, int column) { return row * 37 % 1000 + column; }
inline double cell_real(int row, int column) { return cell_number(row, column) / 8.0; }
inline std::string cell_text(int row, int column) {
    return "item-" + std::to_string(row % 100 + column);
}
inline const char *cell_format(Cell type) {
    switch (type) {
    case Cell::text:
        return "%s";
    case Cell::int32:
        return "%d";
    case Cell::real:
        return "%.2f";
    case Cell::int64:
        return "%lld";
    default:
        return "%6d";
    }
}

inline size_t format_number(char *out, size_t size, Cell type, double number) {
    const int32_t whole = static_cast<int32_t>(number);
    switch (type) {
    case Cell::real:
        return static_cast<size_t>(snprintf(out, size, "%.2f", number));
    case Cell::int64:
        return static_cast<size_t>(snprintf(out, size, "%lld", static_cast<long long>(whole)));
    case Cell::wide:
        return static_cast<size_t>(snprintf(out, size, "%6d", whole));
    default:
        return static_cast<size_t>(snprintf(out, size, "%d", whole));
    }
}

// What a rendering says, whatever its rules, blanks and footer.
inline std::string words_of(const std::string &rendering) {
    std::istringstream in(rendering.substr(0, rendering.find("total count")));
    std::string word, all;
    while (in >> word)
        if (word.find_first_not_of('-') != std::string::npos) all += word + " ";
    return all;
}

// ---- collection ----

constexpr size_t payload_size = 1020; // of a full message: 60 frames of an int
constexpr size_t header_size = 12;
constexpr size_t message_size = header_size + payload_size;
constexpr int frames_of_a_message = 60;
constexpr size_t answer_size = 4;

// What the collector of the values sends before each of them.
struct FrameHeader {
    uint32_t index = 3;
    uint32_t section = 2;
    uint32_t key = 12;
};

// A function of its own: values come one by one.
[[gnu::noinline]] inline uint8_t *write_frame(uint8_t *to, const FrameHeader &header,
                                              uint32_t value) {
    *to = 0x81;
    memcpy(to + 1, &header, sizeof header);
    memcpy(to + 1 + sizeof header, &value, sizeof value);
    return to + 1 + sizeof header + sizeof value;
}

// The payload of a full message; its values are the next ones.
inline void write_message(uint8_t *to, uint32_t *value) {
    const FrameHeader header;
    for (int i = 0; i < frames_of_a_message; ++i) to = write_frame(to, header, ++*value);
}

// ---- the fault log file ----

constexpr int log_faults = 4;
constexpr int log_entries = 100000;

// Where the library's fault log file goes instead of the root directory; on tmpfs.
const char *fault_log_path();
std::string file_content(const char *path);

} // namespace bench
