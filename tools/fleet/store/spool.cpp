#include "fleet/store/spool.h"

#include "fleet/store/store.h"
#include "host/failure.h"
#include "host/file.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

constexpr std::string_view magic = "DTSPOOL1";
constexpr uint64_t largest_segment = 4'000'000; // about what one transaction takes
constexpr size_t largest_file = size_t{1} << 30;

struct Head { // of a run in a segment
    uint32_t size = 0;
    uint32_t crc = 0;
};

constexpr std::array<uint32_t, 256> make_crc_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit) table[i] = table[i] >> 1 ^ (table[i] & 1) * 0xEDB88320;
    }
    return table;
}
constexpr std::array<uint32_t, 256> crc_table = make_crc_table();

uint32_t crc_of(std::string_view bytes) {
    uint32_t crc = UINT32_MAX;
    for (const char byte : bytes)
        crc = crc >> 8 ^ crc_table[(crc ^ static_cast<uint8_t>(byte)) & 255];
    return ~crc;
}

[[noreturn]] void fail(const std::string &path) {
    throw Failure(Exit::failed, fmt::format("{}: {}", path, std::strerror(errno)));
}

void write_all(const dtctl::Fd &file, std::string_view bytes, const std::string &path) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) fail(path);
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

void sync_directory(const std::string &directory) {
    const dtctl::Fd opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened || ::fsync(opened.get()) != 0) fail(directory);
}

// The run that begins there, and the rest behind it; false at the end, torn or not.
bool take(std::string_view &rest, std::string_view &run) {
    Head head;
    if (rest.size() < sizeof head) return false;
    std::memcpy(&head, rest.data(), sizeof head);
    rest.remove_prefix(sizeof head);
    if (head.size > rest.size()) return false;
    run = rest.substr(0, head.size);
    rest.remove_prefix(head.size);
    return crc_of(run) == head.crc;
}

std::string framed(std::span<const RunRecord> runs) {
    std::string bytes;
    for (const RunRecord &run : runs) {
        const std::string packed = pack(run);
        const Head head{static_cast<uint32_t>(packed.size()), crc_of(packed)};
        bytes.append(reinterpret_cast<const char *>(&head), sizeof head);
        bytes += packed;
    }
    return bytes;
}

} // namespace

Spool::Spool(std::string directory, uint64_t most) : directory_(std::move(directory)), most_(most) {
    if (::mkdir(directory_.c_str(), 0700) != 0 && errno != EEXIST) fail(directory_);
    find();
}

std::string Spool::path_of(uint64_t number) const {
    return fmt::format("{}/{:010}", directory_, number);
}

void Spool::find() {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(directory_, error)) {
        const std::string name = entry.path().filename();
        if (name.size() != 10 || name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        segments_.push_back({std::stoull(name), entry.file_size(error), 0});
    }
    if (error) throw Failure(Exit::failed, directory_ + ": " + error.message());
    std::sort(segments_.begin(), segments_.end(),
              [](const Segment &a, const Segment &b) { return a.number < b.number; });
    for (Segment &segment : segments_) {
        const std::string text = dtctl::read_whole_file(path_of(segment.number), largest_file);
        std::string_view rest = text, run;
        if (!rest.starts_with(magic.substr(0, rest.size())))
            throw Failure(Exit::broken, path_of(segment.number) + ": is not of this program");
        rest.remove_prefix(std::min(rest.size(), magic.size()));
        while (take(rest, run)) ++segment.runs;
        bytes_ += segment.bytes;
        runs_ += segment.runs;
    }
}

void Spool::begin_segment() {
    const uint64_t number = segments_.empty() ? 1 : segments_.back().number + 1;
    const std::string path = path_of(number);
    dtctl::Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
    if (!file) fail(path);
    try {
        write_all(file, magic, path);
        sync_directory(directory_);
    } catch (const Failure &) {
        (void)::unlink(path.c_str());
        throw;
    }
    last_ = std::move(file);
    segments_.push_back({number, magic.size(), 0});
    bytes_ += magic.size();
}

// What was not written whole is taken back, so that it can be tried again.
void Spool::append(std::span<const RunRecord> runs) {
    try {
        if (!last_ || segments_.back().bytes >= largest_segment) begin_segment();
        Segment &segment = segments_.back();
        const std::string bytes = framed(runs);
        try {
            write_all(last_, bytes, path_of(segment.number));
            if (::fdatasync(last_.get()) != 0) fail(path_of(segment.number));
        } catch (const Failure &) {
            if (::ftruncate(last_.get(), static_cast<off_t>(segment.bytes)) != 0)
                last_ = dtctl::Fd();
            throw;
        }
        segment.bytes += bytes.size();
        segment.runs += runs.size();
        bytes_ += bytes.size();
        runs_ += runs.size();
    } catch (const Failure &failure) {
        throw Unavailable(failure.what());
    }
}

std::vector<RunRecord> Spool::front() {
    const std::string text =
        dtctl::read_whole_file(path_of(segments_.front().number), largest_file);
    std::string_view rest(text), run;
    rest.remove_prefix(std::min(rest.size(), magic.size()));
    std::vector<RunRecord> runs;
    while (take(rest, run)) {
        if (RunRecord record; unpack(run, record)) runs.push_back(std::move(record));
    }
    return runs;
}

void Spool::pop_front() {
    if (segments_.size() == 1) last_ = dtctl::Fd();
    (void)::unlink(path_of(segments_.front().number).c_str());
    bytes_ -= segments_.front().bytes;
    runs_ -= segments_.front().runs;
    segments_.pop_front();
}

} // namespace dtfleet
