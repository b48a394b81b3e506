// dtctl decode: a capture of collections instead of a device.
#include "dtctl/collect/commands.h"
#include "dtctl/collect/replay.h"
#include "dtctl/output/options.h"

#include <string>

namespace dtctl {
namespace {

struct Options {
    std::string path;
    size_t max_value = default_mebibytes;
    OutputOptions output;
};

constexpr const char *behaviour_help =
    R"(The capture is a pcap file (as tcpdump -w and Wireshark write it) of Ethernet, Linux cooked,
raw IP or loopback frames. Every TCP connection over IPv4 that begins with an opening
message is a collection; ports do not matter. Several follow each other in the order in
which they ended: until then its bytes stay in memory. Segments may be out of order or
repeated.)";

constexpr const char *exit_help =
    R"(Exit status: 0 all collections were whole; 1 the file cannot be read, the output not be
written, or dtctl was built without libpcap; 2 usage; 5 no collection is in the capture, or
one breaks its format or lacks a piece (values before that are printed).)";

void run(const Options &options) {
    const Stream out = open_output(options.output.path, options.path);
    replay(options.path, options.max_value << 20, *make_printer(options.output, out.get()));
}

} // namespace

void add_decode(Command &program) {
    Command command = program.command("decode", "Print the collections in a network capture");
    Options &options = command.runs(run);
    command.argument("FILE", options.path, "The capture; -: standard input");
    command
        .number("--max-value", "MIB", options.max_value, 1, max_mebibytes,
                "Longest string or buffer")
        .shows_default();
    add_output_options(command, options.output);
    add_times_option(command, options.output);
    command.footer(std::string("Examples:\n  dtctl decode visit.pcap --times\n"
                               "  tcpdump -i eth0 -U -w - | dtctl decode - --json\n\n") +
                   behaviour_help + "\n\n" + formats_help + "\n\n" + exit_help);
}

} // namespace dtctl
