#include "dtctl/output.h"

#include "dtctl/failure.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace dtctl {

void Output::put(std::string_view text) {
    if (error_ == 0 && std::fwrite(text.data(), 1, text.size(), out_) != text.size())
        error_ = errno;
}

void Output::flush() {
    if (error_ == 0 && std::fflush(out_) != 0) error_ = errno;
    if (error_ == 0) return;
    const bool reader_left = error_ == EPIPE;
    throw Failure(Exit::failed,
                  reader_left ? ""
                              : std::string("cannot write the output: ") + std::strerror(error_));
}

} // namespace dtctl
