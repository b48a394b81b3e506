// The program's own console, which drops what it gets.
#pragma once

#include <string>

namespace bench {

// While it is set the console keeps its text there.
extern std::string *console_copy;

// What the console gets from one piece of work.
template <class Work> std::string console_text(Work &work) {
    std::string text;
    console_copy = &text;
    work();
    console_copy = nullptr;
    return text;
}

} // namespace bench
