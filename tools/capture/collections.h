// The collections in a file of captured frames.
#pragma once

#include "capture/streams.h"

#include <string>

namespace dtctl {

// Gives each collection in a capture ("-": standard input) to done, one after the other as they
// end; see Streams. Throws Failure like read_capture, and for frames of an unknown kind, after all
// that came before.
void read_collections(const std::string &path, size_t max_value, const Streams::Done &done);

// The address of the device, as text.
std::string sender_of(const Collected &collected);

} // namespace dtctl
