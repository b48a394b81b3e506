// How many descriptors this process may have.
#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace dtctl {

// Raises the limit as far as the system lets it; returns what it is then.
inline size_t allow_descriptors() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : before;
}

} // namespace dtctl
