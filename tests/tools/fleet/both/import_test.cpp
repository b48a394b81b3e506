// What comes in files: faults and captured runs, once and again, new and old.
#include "../engine.h"
#include "../samples.h"
#include "fleet/store/import.h"
#include "host/failure.h"
#include "support/wire.h"
#include "tools/dtctl/collect/run.h"

#include <gmock/gmock.h>

#include <fstream>

namespace dtfleet {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// A run log's lines, and the values of a counter.
std::string faults_of(const std::vector<std::string> &lines, const std::vector<uint32_t> &values) {
    std::string file;
    for (const std::string &line : lines)
        file += counted("run pump 11/16 19:00:10 ") + counted("run pump " + line);
    file += half(0);
    for (const uint32_t value : values) file += counted("\5\3pump" + word(7) + word(value));
    return file;
}

TEST(Import, TheFaultLogsOfADeviceAreOneHistory) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    const auto store = open_store(file, endless);
    const auto import = [&](const std::string &bytes, Microseconds written) {
        return import_faults(*store, "pump", bytes, written);
    };
    const std::string first = faults_of({"a", "b"}, {1, 0});
    EXPECT_EQ(import(first, 10), 4U);
    EXPECT_EQ(import(first, 11), 0U);
    // Later the oldest are gone, and a value that comes again is another one.
    EXPECT_EQ(import(faults_of({"b", "c"}, {0, 1, 0}), 20), 3U);
    EXPECT_EQ(import(first, 25), 0U);
    // Of a file from before, what is known is left out wherever it stands, as often as it does.
    EXPECT_EQ(import(faults_of({"z", "a"}, {0, 1, 1, 1}), 5), 2U);
    EXPECT_EQ(import(faults_of({"c", "d"}, {0, 2}), 30), 2U);
    EXPECT_THROW(import(first.substr(0, first.size() - 1), 30), dtctl::Failure);
    EXPECT_EQ(import_faults(*store, "fan", first, 10), 4U);

    const auto reader = open_reader(file);
    std::vector<std::string> shown;
    for (const FaultRow &row : reader->faults(reader->device("pump")->id, INT64_MAX, 100))
        shown.push_back(std::to_string(row.pass_time) + row.kind + row.stamp + row.fault +
                        std::to_string(row.value_id) + row.value);
    const std::string line = "run11/16 19:00:10pump0", value = "counterpump7";
    EXPECT_THAT(shown, ElementsAre("10" + line + "a", "10" + line + "b", "10" + value + "1",
                                   "10" + value + "0", "20" + line + "c", "20" + value + "1",
                                   "20" + value + "0", "5" + line + "z", "5" + value + "1",
                                   "30" + line + "d", "30" + value + "2"));
    // Digests stand in databases.
    Digester digester;
    digester.add("foobar");
    EXPECT_EQ(id_text(digester.digest()), "343e1662793c64bf6f0d3597ba446f18");
}

// ---- captures -----------------------------------------------------------------------------------

std::string network(uint32_t number, int bytes) {
    std::string text;
    while (bytes-- > 0) text += static_cast<char>(number >> (8 * bytes));
    return text;
}

enum Flags : uint8_t { fin = 1, syn = 2, rst = 4, ack = 16 };

struct Capture {
    std::string bytes =
        word(0xa1b2c3d4) + "\2\0\4\0"s + word(0) + word(0) + word(65535) + word(101);
    uint16_t port = 4000;

    // To the port 9098 of 10.0.0.1.
    void packet(uint32_t time, uint8_t host, uint32_t sequence, uint8_t flags,
                const std::string &payload) {
        const auto size = static_cast<uint32_t>(40 + payload.size());
        bytes += word(time) + word(0) + word(size) + word(size) + "\x45\0"s + network(size, 2) +
                 "\0\0\x40\0\x40\x06\0\0\x0A\0\0"s + static_cast<char>(host) + "\x0A\0\0\x01"s +
                 network(port, 2) + network(9098, 2) + network(sequence, 4) + "\0\0\0\0\x50"s +
                 static_cast<char>(flags) + "\xFF\xFF\0\0\0\0"s + payload;
    }
    void run(uint32_t time, uint8_t host, const std::string &sent, uint8_t last) {
        ++port;
        packet(time, host, 0, syn, "");
        packet(time, host, 1, ack, sent);
        if (last != 0) packet(time + 1, host, static_cast<uint32_t>(1 + sent.size()), last, "");
    }
};

TEST(Import, CapturedRunsAreWhatTheDevicesSent) {
    const Scratch scratch;
    const Fresh fresh;
    const std::string &file = fresh.name(), path = scratch / "visit.pcap";
    const auto store = open_store(file, endless);
    store->take_meanings({{"pump", {}, 7, "speed", "", false, {}}});
    RunRecord known = make_run(1, "fan", 1000 * second);
    add_number(known, "pump", 7, 7);
    store->write({&known, 1});
    RunRecord before = make_run(2, "pump", 1);
    before.outcome = Outcome::unanswered;
    store->write({&before, 1});

    Capture capture;
    const std::string whole = opening + directory + data + end;
    const std::string nothing = "\x0C\0\0\0\x02\0\0\0\x02\0\0\0"s;
    capture.run(100, 9, whole, fin);
    capture.run(100, 7, whole, fin);
    capture.run(200, 9, opening + directory + data, rst);
    capture.run(300, 9, opening + directory + word(5) + word(2) + word(3), fin);
    capture.run(400, 9, opening + nothing, fin);
    capture.run(500, 8, whole, fin);
    capture.run(600, 9, opening + directory + data + end, 0);
    std::ofstream(path, std::ios::binary) << capture.bytes << "cut";

    const auto reader = open_reader(file);
    std::map<std::string, Sender> senders = {{"10.0.0.9", {"pump", reader->device("pump")->id}},
                                             {"10.0.0.7", {"fan", reader->device("fan")->id}}};
    const auto import = [&] {
        const CapturedRuns runs = import_capture(*store, path, senders, Limits());
        EXPECT_EQ(std::pair(runs.whole, runs.broken), std::pair(size_t{3}, size_t{3}));
        EXPECT_THAT(runs.strangers, ElementsAre(std::pair("10.0.0.8", 1U)));
        EXPECT_THAT(runs.trouble, Not(IsEmpty()));
    };
    import();
    const auto all = [&] {
        return rows_of(file, "SELECT time, device, command, outcome, address, identity, reason "
                             "FROM collection WHERE id > 2 ORDER BY time, id");
    };
    const auto rows = all();
    EXPECT_THAT(
        rows,
        ElementsAre("100000000|2|0|0|10.0.0.9|41218|", "100000000|1|0|0|10.0.0.7|41218|",
                    "200000000|2|0|6|10.0.0.9|41218|the connection was reset, after 3 messages "
                    "and 67 bytes",
                    AllOf(StartsWith("300000000|2|0|7|"), HasSubstr("message 3, byte 0")),
                    "400000000|2|3|0|10.0.0.9|41218|",
                    AllOf(StartsWith("600000000|2|0|7|"), HasSubstr("capture ends before"))));
    const char *values = "SELECT time, device, collector, key, type, number FROM value_flat "
                         "WHERE time <> 1000000000 ORDER BY time, device";
    EXPECT_THAT(rows_of(file, values),
                ElementsAre("100000000|fan|pump|7|int|100", "100000000|pump|pump|7|int|100"));
    EXPECT_THAT(rows_of(file, "SELECT name FROM series"), ElementsAre("speed"));
    const auto number_of = [&](const char *device) {
        return reader->latest(reader->device(device)->id, 0).at(0).value.number;
    };
    EXPECT_EQ(std::pair(number_of("fan"), number_of("pump")), std::pair(7UL, 100UL));
    EXPECT_EQ(reader->device("fan")->last_ok, 1000 * second);
    EXPECT_EQ(reader->device("pump")->last_ok, 100 * second);

    store->rename("pump", "well");
    senders["10.0.0.9"].device = "well";
    import();
    EXPECT_EQ(all(), rows);
    EXPECT_EQ(reader->device("well")->last_try, 600 * second);
}

} // namespace
} // namespace dtfleet
