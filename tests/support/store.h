// What a record store holds, and whether it keeps its own rules.
#pragma once

#include <dt/records.h>

#include <string>
#include <utility>
#include <vector>

using Records = std::vector<std::pair<std::string, std::string>>; // key and value, oldest first

Records records_of(DTInfo *store, const std::string &key = "");

// Fails the running test unless every byte of the block is part of a live record or free, and the
// positions and sizes agree.
void expect_sound(DTInfo *store);
