// Decodes the fault log file that a device writes.
//
// The file: log entries, an end mark, value entries to the file's end. Each begins with its length
// N (2 bytes, little-endian) of what follows; the end mark is a length of 0.
//
//   log entry    the word "log" (init log) or "run" (run log), a blank, the fault's name, a blank,
//                the data of one log record
//   value entry  length of kind and name (1), kind (1), the fault's name, the record's data: an id
//                (4), then a number of 4 or 8 bytes, or a length (4) and that many bytes
//
// A logged line makes two log entries, its time stamp and its text. Nothing in a log entry says
// where the name ends, and names may be empty or contain blanks. The decoder finds it out so:
//
// 1. An entry that ends in a blank and a stamp ("MM/DD HH:MI:SS " or "YYYY/MM/DD HH:MI:SS"), with
//    at most 22 bytes of name before them, is a stamp: those bytes are the name.
// 2. The entry behind a stamp is its text when it is of the same log and begins with the stamp's
//    name and a blank, unless nothing but a stamp follows them. The two are one line.
// 3. A stamp that finds no text is a line without text.
// 4. Any other entry is a text without stamp: a full log drops its oldest records one by one, so
//    it often begins with one. Its name is that of the stamp directly behind it, if that is of the
//    same log and the entry begins with it and a blank; or else that of the line before, if the
//    entry begins with that and a blank; or else it ends at the first blank.
//
// So whole lines are read as they were logged, but for a text that is nothing but a stamp: it
// counts as one. Otherwise only an entry without its other half can be misread, by splitting it at
// another blank or by pairing it with what follows it; no byte is ever lost.
#pragma once

#include "decode/reader.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace dt::decode {

inline constexpr size_t max_fault_name = 22;

enum class FaultLog : uint8_t { init, run };

// One logged line. Names and texts are bytes; nothing promises UTF-8.
struct LogLine {
    FaultLog log = FaultLog::init;
    std::string fault;
    std::optional<std::string> time; // the stamp without its trailing blank
    std::optional<std::string> text; // never absent together with the time
};

// The values are those of the file.
enum class FaultKind : uint8_t {
    reg = 0,
    reg64 = 1,
    reg_data = 2,
    counter = 3,
    counter64 = 4,
    counter_data = 5,
    value = 6,
};

// Bytes of a kind's number; 0 for a kind that carries data.
size_t number_size(FaultKind kind);

struct FaultValue {
    FaultKind kind = FaultKind::reg;
    std::string fault;
    uint32_t id = 0;
    uint64_t number = 0; // the bits, the file knows no sign
    std::string data;    // any bytes
};

// Whether a file that begins like this, with so many bytes or with all that it has, may be a fault
// log. Most other files do not begin with a log's word, or with an end mark and a kind.
inline constexpr size_t fault_log_head = 6;
bool may_be_fault_log(std::string_view head);

// Where the bytes stopped making sense, and why.
struct Damage {
    uint64_t offset;    // the byte within the file
    std::string reason; // one line of plain ASCII
};

// Receives lines and values in the file's order. References are valid during the call.
class FaultSink {
public:
    virtual ~FaultSink() = default;
    virtual void on_line(const LogLine &) {}
    virtual void on_fault_value(const FaultValue &) {}
};

// What is complete before the damage reaches the sink and stays valid. A line is delivered one
// entry late, as the next entry may belong to it.
//
// Memory: two entries, 64 KiB each at most. No input makes it throw; running out of memory and the
// sink's own exceptions pass through.
class FaultLogDecoder {
public:
    // sink must outlive the decoder.
    explicit FaultLogDecoder(FaultSink &sink) : sink_(sink) {}

    // Takes the next bytes of the file; how the file is cut into calls makes no difference. Returns
    // false once it is damaged; bytes behind the damage are ignored.
    bool feed(std::span<const uint8_t> bytes);

    // Says that the file has ended. Returns true for a whole file. A file that stops short is
    // damaged at the first byte that is missing; one cut between two value entries looks whole.
    bool finish();

    // The first and only damage; empty while all is well.
    const std::optional<Damage> &damage() const { return damage_; }

private:
    // A log entry that waits for the next one. Its content is what stands behind the word.
    struct Held {
        FaultLog log;
        std::string content;
        std::optional<std::string> name; // of a stamp; a text's is not known yet
    };

    size_t take(std::span<const uint8_t> bytes);
    bool begin_entry();
    void next_entry();
    bool end_log_section();
    bool read_log_entry(Reader entry);
    bool read_value_entry(Reader entry);
    bool read_value(Reader &data, FaultValue value);
    bool completes_line(FaultLog log, std::string_view content) const;
    void release_held(const Held *next = nullptr);
    std::string name_of_text(const Held &text, const Held *next) const;
    void deliver(LogLine line);
    bool fail(size_t offset, std::string reason);

    FaultSink &sink_;
    std::optional<Damage> damage_;

    // The entry that is being received, its length included.
    std::vector<uint8_t> entry_;
    uint64_t entry_at_ = 0; // where it begins in the file
    size_t wanted_ = sizeof(uint16_t);

    bool in_log_section_ = true;
    std::optional<Held> held_;
    std::optional<std::string> last_fault_; // of the line before
};

} // namespace dt::decode
