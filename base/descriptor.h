// Descriptors that the library makes: closed in the programs that the process starts, and never a
// standard stream's, whose output would otherwise go to a peer or into a file when that stream is
// closed.
#ifndef DT_BASE_DESCRIPTOR_H
#define DT_BASE_DESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

namespace dt {

// Whether it may stay where it is, as -1 may; marks it to be closed. errno says what it said.
inline bool is_apart(int fd) {
    if (fd < 0) return true;
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return fd > STDERR_FILENO;
}

inline int copy_apart(int fd) { return fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }

// Takes a descriptor, or -1, and returns the one to use in its place; -1 when there is none.
inline int kept_apart(int fd) {
    if (is_apart(fd)) return fd;
    const int copy = copy_apart(fd);
    close(fd);
    return copy;
}

} // namespace dt

#endif
