#include "fleet/commands/run_printer.h"

#include "host/json_text.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>

namespace dtfleet {
namespace {

using dt::decode::Kind;

const char *type_name(Kind kind) {
    constexpr const char *names[] = {"int", "long", "string", "buffer"};
    return names[static_cast<size_t>(kind) - 1];
}

// As dtctl prints them: 64 bits as a text, since programs that read JSON cut larger numbers.
dtctl::Object object_of(const Samples &samples, const Sample &sample) {
    dtctl::Object object;
    dtctl::add_text(object, "collector", "collector_hex", samples.collectors[sample.collector]);
    object["section"] = sample.section;
    object["key"] = sample.key;
    object["type"] = type_name(sample.kind);
    const std::string bytes = is_number(sample.kind) ? "" : std::string(samples.bytes_of(sample));
    if (sample.kind == Kind::int32)
        object["value"] = sample.number;
    else if (sample.kind == Kind::int64)
        object["value"] = std::to_string(sample.number);
    else if (sample.kind == Kind::string)
        dtctl::add_text(object, "text", "hex", bytes);
    else
        object["hex"] = dtctl::hex(bytes);
    return object;
}

} // namespace

bool RunPrinter::has_room() const {
    pollfd out{STDOUT_FILENO, POLLOUT, 0};
    return ::poll(&out, 1, 0) > 0;
}

void RunPrinter::put(RunRecord run) {
    const std::string line = line_of(run) + "\n";
    failed_ |= std::fwrite(line.data(), 1, line.size(), stdout) != line.size();
    failed_ |= std::fflush(stdout) != 0;
}

std::string line_of(const RunRecord &run) {
    dtctl::Object object;
    object["run"] = id_text(run.id);
    object["device"] = run.device;
    object["time"] = run.time;
    object["command"] = run.command;
    object["outcome"] = text_of(run.outcome);
    if (!run.reason.empty()) object["reason"] = run.reason;
    if (!run.address.empty()) object["address"] = run.address;
    if (run.identity) object["identity"] = *run.identity;
    object["messages"] = run.messages;
    object["bytes"] = run.bytes;
    object["values"] = dtctl::Object::array();
    for (const Sample &sample : run.samples.list)
        object["values"].push_back(object_of(run.samples, sample));
    return dtctl::text_of(object);
}

} // namespace dtfleet
