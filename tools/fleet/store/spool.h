// Finished runs in files of their own, in their order, while the database is away.
//
// A directory of segments, each a magic number and then runs: their length, the CRC-32 of what
// follows, and the run, in this machine's order of bytes. Whoever is killed leaves at most a torn
// end; it is cut when the segment is read.
#pragma once

#include "fleet/store/record.h"
#include "host/fd.h"

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

namespace dtfleet {

// A run as bytes, and back; false for bytes that are none.
std::string pack(const RunRecord &run);
bool unpack(std::string_view bytes, RunRecord &run);

class Spool {
public:
    // Makes the directory, or finds what is in it. most: bytes. Throws dtctl::Failure.
    Spool(std::string directory, uint64_t most);

    // All of them are on disk afterwards; throws Unavailable when none is, for want of room on the
    // disk. Those that are under way are taken even when it is full.
    void append(std::span<const RunRecord> runs);

    // The oldest ones, to be stored and then to be removed.
    std::vector<RunRecord> front();
    void pop_front();

    bool is_empty() const { return segments_.empty(); }
    bool is_full() const { return bytes_ >= most_; }
    uint64_t bytes() const { return bytes_; }
    uint64_t runs() const { return runs_; }

private:
    struct Segment {
        uint64_t number;
        uint64_t bytes;
        uint64_t runs;
    };
    std::string path_of(uint64_t number) const;
    void find();
    void begin_segment();

    std::string directory_;
    uint64_t most_;
    std::deque<Segment> segments_;
    dtctl::Fd last_; // the last segment, when it may still grow
    uint64_t bytes_ = 0;
    uint64_t runs_ = 0;
};

} // namespace dtfleet
