// What is measured, in the report's order, and how close libdt is to come to the others.
#pragma once

namespace bench {

struct Target {
    const char *work;
    const char *who;
    double most; // of libdt's time to theirs; 0: none, for the comparison alone
};

extern const Target *const targets_begin;
extern const Target *const targets_end;

} // namespace bench
