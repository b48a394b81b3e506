// A run through the whole interface, which asks for nearly all allocations that there are. Its
// answers are checked: the ones that the headers promise, whether or not there is memory.
#pragma once

#include <string>

extern bool memory_returns; // behind one that fails: what was refused is asked for again

// What all of it has shown and printed. Nothing is left behind, nor are the faults from before.
std::string scenario();
