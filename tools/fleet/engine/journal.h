// What the service tells its operator: lines on standard error, which the system's journal keeps.
#pragma once

#include "fleet/engine/time.h"
#include "fleet/store/record.h"

#include <cstdint>
#include <string>
#include <unordered_map>

namespace dtfleet {

class Journal {
public:
    enum class Level : int { error = 3, warning = 4, notice = 5, info = 6 }; // those of the journal

    // Where the descriptor leads to the system's journal, each line says its level.
    explicit Journal(int fd = 2);

    // Every line of the text becomes one. A reader that does not keep up holds up nobody: lines are
    // lost then, and counted.
    void say(Level level, std::string_view text);

private:
    void put(Level level, std::string_view line);

    int fd_;
    bool has_levels_;
    uint64_t lost_ = 0;
};

// Devices that fail, in few lines: the first failure, a sum each hour, and the end of it.
class Troubles {
public:
    explicit Troubles(Journal &journal) : journal_(journal) {}

    void note(const RunRecord &run, Time time);

    // Says the sums that are due; to be called now and then.
    void pass(Time time);

    size_t known() const { return devices_.size(); }

private:
    struct Trouble {
        Time said{}; // the line that counts as this hour's
        uint32_t runs = 0;
        uint32_t failed = 0; // of these, since then
        uint32_t in_a_row = 1;
        bool is_over = false;
        bool said_over = false; // in this hour
        std::string last;
    };

    void note_failure(const RunRecord &run, Time time);
    void note_success(const std::string &device, Trouble &trouble);
    bool sum_up(const std::string &device, Trouble &trouble, Time time);

    Journal &journal_;
    std::unordered_map<std::string, Trouble> devices_;
};

// That runs cannot be stored, and the end of it.
class Hindrance {
public:
    explicit Hindrance(Journal &journal) : journal_(journal) {}

    // reason: why no run may begin, empty for none; dropped: runs lost since the start.
    void note(const std::string &reason, uint64_t dropped, Time time);

    // Whether, and why, old history is not deleted as it should be.
    void note_retention(bool clock_held, bool too_large);

    // away: why a database on a server cannot be reached, empty for one that can.
    void note_outage(const std::string &away);

private:
    Journal &journal_;
    bool is_said_ = false;
    bool clock_held_ = false;
    bool too_large_ = false;
    bool is_away_ = false;
    Time quiet_until_{}; // what comes and goes is said once a minute
    uint64_t dropped_ = 0;
};

} // namespace dtfleet
