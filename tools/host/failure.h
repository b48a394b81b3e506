// How a host program ends, and the one exception that carries a bad end to main.
#pragma once

#include <stdexcept>
#include <string>

namespace dtctl {

enum class Exit : int {
    success = 0,
    failed = 1,      // our own side: a file that cannot be read, output not be written, no memory
    usage = 2,       // wrong options or arguments
    timeout = 3,     // the device was silent for too long
    unreachable = 4, // name, address or port: unknown, refused or in use
    broken = 5,      // what was sent or read breaks its format or stops short
};

// what() is one line for the user; empty when there is nobody left to tell.
class Failure : public std::runtime_error {
public:
    Failure(Exit code, const std::string &message) : std::runtime_error(message), code_(code) {}
    Exit code() const { return code_; }

private:
    Exit code_;
};

} // namespace dtctl
