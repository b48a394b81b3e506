// Console text through the default sink, and hex dumps.
#include "bench/bench.h"
#include "bench/console.h"
#include "bench/inputs.h"

#include <dt/foundation.h>
#include <stdio.h>

namespace {

using namespace bench;

class DtShow {
public:
    void operator()() { DTPrint_Show(line_.c_str(), 0); }
    std::string kept() { return console_text(*this); }

private:
    std::string line_ = line_of_40 + std::string("\n");
};

// Copies the line and hands it to the console.
class LimitShow {
public:
    void operator()() {
        use(line_);
        memcpy(copy_, line_.data(), line_.size() + 1);
        VRK_RawPrint("%s", copy_);
    }
    std::string kept() { return console_text(*this); }

private:
    std::string line_ = line_of_40 + std::string("\n");
    char copy_[1000];
};

constexpr size_t dumped = 1024;

class Dump {
protected:
    Dump() {
        for (size_t i = 0; i < dumped; ++i) bytes_[i] = static_cast<uint8_t>(i * 7);
    }
    uint8_t bytes_[dumped];
    char out_[3 * dumped + dumped / 16 + 1];
};

struct DtDump : Dump {
    void operator()() { use(DTString_SHFormat(bytes_, dumped)); }
    std::string kept() { return DTString_SHFormat(bytes_, dumped); }
};

// Stores the digits, the blanks and the line breaks.
struct LimitDump : Dump {
    void operator()() {
        static constexpr char digits[] = "0123456789ABCDEF";
        char *to = out_;
        for (size_t line = 0; line < dumped; line += 16) {
            if (line != 0) *to++ = '\n';
            for (size_t i = line; i < line + 16; ++i, to += 3) {
                to[0] = digits[bytes_[i] >> 4];
                to[1] = digits[bytes_[i] & 15];
                to[2] = ' ';
            }
        }
        *to = '\0';
        use(out_);
    }
    std::string kept() {
        (*this)();
        return out_;
    }
};

struct SnprintfDump : Dump {
    void operator()() {
        char *to = out_;
        for (size_t i = 0; i < dumped; ++i) {
            if (i != 0 && i % 16 == 0) *to++ = '\n';
            to += snprintf(to, 4, "%02X ", bytes_[i]);
        }
        use(out_);
    }
    std::string kept() {
        (*this)();
        return out_;
    }
};

const Family print([] {
    contend<DtShow>("console line", libdt);
    contend<LimitShow>("console line", limit);
    contend<DtDump>("hex dump of 1 KiB", libdt);
    contend<LimitDump>("hex dump of 1 KiB", limit);
    contend<SnprintfDump>("hex dump of 1 KiB", "snprintf");
});

} // namespace
