// Files that are read. What cannot be read is a Failure of our own side, with the file's name.
#pragma once

#include "host/fd.h"

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>

namespace dtctl {

// Opens a file for reading; "-" is standard input.
Fd open_input(const std::string &path);

// Reads what is there, 0 at the end, or -1 with errno.
ssize_t read_some(const Fd &file, std::span<uint8_t> buffer);

[[noreturn]] void report_unreadable(const std::string &path);

// All of a file of at most so many bytes; "-" is a file like any other.
std::string read_whole_file(const std::string &path, size_t most = size_t{16} << 20);

} // namespace dtctl
