// The fault log file as the test wants it: opened somewhere else, or not at all.
#pragma once

#include <string>

struct FaultLog {
    bool broken = false; // cannot be opened
    bool full = false;   // takes no byte
    int opened = 0;      // how often it was

    std::string content() const;
};

extern FaultLog fault_log;
