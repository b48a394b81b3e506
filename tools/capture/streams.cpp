#include "capture/streams.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace dtctl {
namespace {

using namespace std::string_view_literals;

// An opening message's length and type.
constexpr std::string_view signature = "\x10\0\0\0\0\0\0\0"sv;

constexpr size_t opening_message = dt::decode::wire::header_size + dt::decode::wire::opening_size;

// No connection has more than this under way; what exceeds it comes of a gap that never closes.
constexpr size_t max_early = size_t{4} * 1024 * 1024;

bool may_be_collection(std::string_view bytes) {
    const size_t known = std::min(bytes.size(), signature.size());
    return bytes.substr(0, known) == signature.substr(0, known);
}

std::string_view text_of(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// Appends what is new of a piece; false when something is missing in front of it.
bool join(std::string &bytes, uint64_t position, std::string_view piece) {
    if (position > bytes.size()) return false;
    const uint64_t known = bytes.size() - position;
    if (known < piece.size()) bytes += piece.substr(known);
    return true;
}

} // namespace

void Streams::take(const Segment &segment, int64_t when) {
    if (segment.begins || !open_.contains(segment.flow)) begin(segment, when);
    if (const auto found = open_.find(segment.flow); found != open_.end()) {
        Open &open = found->second;
        add(open, segment);
        const std::string &bytes = open.collected.bytes;
        open.collected.ended = when;
        if (open.collected.opened == 0 && bytes.size() >= opening_message)
            open.collected.opened = when;
        if (!may_be_collection(bytes)) {
            open_.erase(found);
        } else if (breaks(open) || (open.end && bytes.size() >= *open.end)) {
            finish(segment.flow);
        }
    }
    if (!segment.breaks) return;
    finish(segment.flow, true);
    finish(segment.flow.reversed(), true);
}

// A first segment may come again, even late, and its ports may have been used before.
void Streams::begin(const Segment &segment, int64_t when) {
    if (!segment.begins && !text_of(segment.payload).starts_with(signature)) return;
    const uint32_t first = segment.sequence + (segment.begins ? 1 : 0);
    const auto known = open_.find(segment.flow);
    if (known != open_.end() && known->second.first == first) return;
    const auto ended = ended_.find(segment.flow);
    if (ended != ended_.end() && ended->second == first) return;
    finish(segment.flow);
    Open open;
    open.collected.flow = segment.flow;
    open.collected.begun = when;
    open.first = first;
    open.number = begun_++;
    open_.emplace(segment.flow, std::move(open));
}

void Streams::add(Open &open, const Segment &segment) {
    std::string &bytes = open.collected.bytes;
    // Sequence numbers wrap; how far from what is known one lies, forwards or backwards, does not.
    const auto known = static_cast<uint32_t>(open.first + bytes.size());
    const uint32_t sequence = segment.sequence + (segment.begins ? 1 : 0);
    const auto distance = static_cast<int32_t>(sequence - known);
    const int64_t at = static_cast<int64_t>(bytes.size()) + distance;
    if (at < 0) return; // what asks whether the connection is alive
    const auto position = static_cast<uint64_t>(at);
    const std::string_view piece = text_of(segment.payload);
    if (segment.ends) open.end = position + piece.size();
    if (!join(bytes, position, piece) && !piece.empty() && open.early_size < max_early) {
        std::string &early = open.early[position];
        if (early.size() < piece.size()) {
            open.early_size += piece.size() - early.size();
            early = piece;
        }
    }
    while (!open.early.empty()) {
        const auto next = open.early.begin();
        if (!join(bytes, next->first, next->second)) break;
        open.early_size -= next->second.size();
        open.early.erase(next);
    }
}

bool Streams::breaks(Open &open) const {
    const std::string_view bytes = open.collected.bytes;
    if (bytes.size() < signature.size()) return false;
    if (!open.check) open.check = std::make_unique<Check>(max_value_);
    const std::string_view fresh = bytes.substr(open.check->decoder.totals().bytes);
    return !open.check->decoder.feed(
        {reinterpret_cast<const uint8_t *>(fresh.data()), fresh.size()});
}

void Streams::finish(const Flow &flow, bool reset) {
    auto node = open_.extract(flow);
    if (node.empty()) return;
    Open &open = node.mapped();
    Collected &collected = open.collected;
    ended_[flow] = open.first;
    const bool broken = open.check && open.check->decoder.broken();
    const bool lacking = !open.early.empty() || (open.end && *open.end > collected.bytes.size());
    collected.incomplete = lacking && !broken;
    collected.closed = open.end && !lacking;
    collected.reset = reset;
    if (collected.bytes.size() >= signature.size()) done_(collected);
}

void Streams::end() {
    std::vector<std::pair<uint64_t, Flow>> flows;
    for (const auto &[flow, open] : open_) flows.emplace_back(open.number, flow);
    std::ranges::sort(flows);
    for (const auto &[number, flow] : flows) finish(flow);
}

} // namespace dtctl
