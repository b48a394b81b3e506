// What a collection says, once its bytes are understood.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace dt::decode {

// The message that begins every connection.
struct Opening {
    uint32_t sequence;               // as the command asked, or the device's own count
    std::array<uint8_t, 2> identity; // the bytes that the device was started with
};

// One collector of the directory. Names are bytes; nothing promises UTF-8.
struct DirectoryEntry {
    uint32_t index;
    std::string name;
};

// In a self-test run: the results that follow are this collector's.
struct SelfTest {
    std::string name;
};

// The values are those of the wire.
enum class Kind : uint8_t { int32 = 1, int64 = 2, string = 3, buffer = 4 };

// A whole value, its pieces joined.
struct Value {
    Kind kind = Kind::int32;
    uint32_t index = 0; // the collector's number
    uint32_t section = 0;
    uint32_t key = 0;
    uint64_t number = 0; // int32 and int64: the bits, the wire knows no sign
    std::string bytes;   // string and buffer: any bytes, NUL included

    // Who sent it: the directory's name for the index or, in a run without directory, the
    // collector under self-test. Absent when the directory does not hold the index, or when a run
    // has named nobody yet.
    std::optional<std::string> collector;
};

// Where the bytes stopped making sense, and why.
struct Break {
    uint64_t message;   // its number, 1 for the first that arrived on the connection
    size_t offset;      // the byte within that message, 0 for the first byte of its header
    std::string reason; // one line of plain ASCII
};

// Receives events in the order of arrival. References are valid during the call.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void on_opening(const Opening &) {}
    virtual void on_directory_entry(const DirectoryEntry &) {}
    virtual void on_selftest(const SelfTest &) {}
    virtual void on_value(const Value &) {}
};

} // namespace dt::decode
