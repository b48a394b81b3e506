// Loggers into a ring of messages, into a ring of finished texts, and into a file.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

namespace {

using namespace bench;

constexpr size_t ring_lines = 10000;

// Keeps messages with their time as a number.
class RingLog {
public:
    RingLog() {
        for (size_t i = 0; i < 2 * ring_lines; ++i) (*this)();
    }
    void operator()() { log_.info(line_of_40); }
    std::string kept() {
        (*this)();
        const auto last = sink_->last_raw(1).back();
        return std::string(last.payload.data(), last.payload.size());
    }

private:
    using Sink = spdlog::sinks::ringbuffer_sink_st;
    std::shared_ptr<Sink> sink_ = std::make_shared<Sink>(ring_lines);
    spdlog::logger log_{"ring", sink_};
};

// Keeps lines with their time as a text, in strings that are used again.
class TextSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    const std::string &newest() const { return lines_[at_]; }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override {
        text_.clear();
        formatter_->format(message, text_);
        at_ = (at_ + 1) % ring_lines;
        lines_[at_].assign(text_.data(), text_.size());
    }
    void flush_() override {}

private:
    spdlog::memory_buf_t text_;
    std::vector<std::string> lines_{ring_lines};
    size_t at_ = 0;
};

std::unique_ptr<spdlog::formatter> formatter(const char *pattern) {
    return std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::local,
                                                       "");
}

class TextLog {
public:
    TextLog() {
        sink_->set_formatter(formatter("%Y/%m/%d %H:%M:%S%v"));
        for (size_t i = 0; i < 2 * ring_lines; ++i) (*this)();
    }
    void operator()() { log_.info(line_of_40); }
    std::string kept() {
        (*this)();
        return sink_->newest().substr(19);
    }

private:
    std::shared_ptr<TextSink> sink_ = std::make_shared<TextSink>();
    spdlog::logger log_{"text", sink_};
};

// Writes the entries that the fault log file has, one by one.
class FileLog {
public:
    FileLog() : entries_(split(file_content(fault_log_path()))) {}
    FileLog(const FileLog &) = delete;
    ~FileLog() { unlink(path); }

    void operator()() {
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(path, true);
        sink->set_formatter(formatter("%v"));
        spdlog::logger log("file", sink);
        for (const std::string &entry : entries_) log.info(spdlog::string_view_t(entry));
    }
    std::string kept() {
        (*this)();
        return file_content(path);
    }

private:
    static constexpr const char *path = "/dev/shm/dt-bench-spdlog.log";

    // Each with its length before it; of the end mark nothing but its length.
    static std::vector<std::string> split(const std::string &file) {
        std::vector<std::string> all;
        for (size_t at = 0; at + 2 <= file.size();) {
            uint16_t length;
            memcpy(&length, file.data() + at, sizeof length);
            all.push_back(file.substr(at, 2u + length));
            at += 2u + length;
        }
        return all;
    }

    std::vector<std::string> entries_;
};

const Family spdlog_family([] {
    contend<RingLog>("logger line", "spdlog ring");
    contend<TextLog>("logger line", "spdlog ring, time text");
    contend<FileLog>("fault log file", "spdlog");
});

} // namespace
