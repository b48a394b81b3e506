#include "fleet/simulate/script.h"

#include "decode/wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace dtfleet {
namespace {

namespace wire = dt::decode::wire;

constexpr uint32_t collectors = 4;
constexpr size_t payload_size = wire::max_message_size - wire::header_size;

void put(std::string &out, uint64_t number, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) out += static_cast<char>(number >> (8 * i));
}

// Cuts frames into messages as a device does: a frame that does not fit begins the next one.
class Messages {
public:
    Messages(std::vector<std::string> &out, uint32_t first) : out_(out), number_(first) {}

    void send(uint32_t type, std::string_view payload, uint32_t number = 0) {
        std::string message;
        put(message, wire::header_size + payload.size(), 4);
        put(message, type, 4);
        put(message, number != 0 ? number : ++number_, 4);
        out_.push_back(message.append(payload));
    }

    void number(uint32_t index, uint32_t key, uint64_t value, uint8_t kind) {
        const size_t size = kind == 1 ? 4 : 8;
        frame(index, key, kind, size);
        put(payload_, value, size);
    }

    void text(uint32_t index, uint32_t key, std::string_view value) {
        frame(index, key, 3, 2 + value.size());
        put(payload_, value.size(), 2);
        payload_ += value;
    }

    void flush() {
        send(wire::data_type, payload_);
        payload_.clear();
    }

private:
    void frame(uint32_t index, uint32_t key, uint8_t kind, size_t size) {
        if (payload_.size() + wire::frame_size + size > payload_size) flush();
        payload_ += static_cast<char>(wire::complete_flag | kind);
        put(payload_, index, 4);
        put(payload_, 0, 4);
        put(payload_, key, 4);
    }

    std::vector<std::string> &out_;
    uint32_t number_;
    std::string payload_;
};

std::string name_of(uint32_t index) {
    constexpr const char *names[collectors] = {"pump", "motor", "climate", "power"};
    return names[index];
}

std::string directory() {
    std::string payload;
    for (uint32_t i = 0; i < collectors; ++i) {
        put(payload, i, 4);
        put(payload, name_of(i).size(), 2);
        payload += name_of(i);
    }
    return payload;
}

// One in ten values changes from run to run, as on most machines.
uint64_t value_of(const Script &script, uint32_t key) {
    const uint64_t moving = key % 10 == script.turn % 10 ? script.turn : 0;
    return uint64_t{script.device} * 1000 + key + 7 * moving;
}

// The last lines of a log, as stamps and texts: all of them, every time.
void put_log(Messages &out, const Script &script) {
    const uint32_t last = 20 + 3 * script.turn;
    for (uint32_t line = last > 200 ? last - 200 : 0; line < last; ++line) {
        out.text(0, 9000,
                 fmt::format("2026/01/{:02} {:02}:{:02}:{:02}", 1 + line / 86400 % 28,
                             line / 3600 % 24, line / 60 % 60, line % 60));
        out.text(0, 9000, fmt::format("line {} of device {}", line, script.device));
    }
}

void put_collector(Messages &out, const Script &script, uint32_t index) {
    const uint32_t share = script.values / collectors + (index < script.values % collectors);
    for (uint32_t i = 0; i < share && script.manner != Manner::empty; ++i) {
        const uint32_t key = index * 1000 + i;
        if (i % 20 == 19)
            out.text(index, key, fmt::format("state {}", value_of(script, key) % 5));
        else
            out.number(index, key, value_of(script, key), i % 20 == 18 ? 2 : 1);
    }
    if (index == 0 && script.manner == Manner::logging) put_log(out, script);
    out.flush();
}

} // namespace

std::vector<std::string> messages_of(const Script &script, uint32_t token, bool selftest) {
    std::vector<std::string> messages;
    Messages out(messages, 16 * script.turn);
    std::string identity;
    put(identity, script.manner == Manner::clashing ? 0xFFFF : script.device & 0xFFFF, 2);
    out.send(wire::opening_type, identity + std::string(2, '\0'), token);
    if (!selftest) out.send(wire::directory_type, directory());
    for (uint32_t i = 0; i < collectors; ++i) {
        if (selftest) out.text(wire::selftest_index, 0, name_of(i));
        if (selftest) out.number(i, 1, 0, 1);
        if (selftest) out.flush();
        if (!selftest) put_collector(out, script, i);
    }
    out.send(wire::data_type, "");
    if (script.manner == Manner::broken) messages[messages.size() / 2][4] = '\x7f';
    return messages;
}

} // namespace dtfleet
