// What an inventory says, and what is wrong with it.
#include "fleet/inventory/shared.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fstream>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

struct InventoryTest : testing::Test {
    void write(const char *file, const std::string &text) { std::ofstream(scratch / file) << text; }

    // "FILE:LINE the text up to its first colon"
    std::vector<std::string> mistakes() {
        std::vector<std::string> list;
        loaded = load_inventory(scratch / "fleet.toml");
        for (const Complaint &one : loaded.complaints)
            list.push_back(fmt::format("{}:{} {}", one.file.substr(one.file.rfind('/') + 1),
                                       one.line, one.text.substr(0, one.text.find(':'))));
        return list;
    }

    Scratch scratch;
    Loaded loaded;
};

TEST_F(InventoryTest, GroupsDecideWhatADeviceLeavesOpen) {
    write("fleet.toml", R"(interval = "2m"
selftest = "1d"
include = "*.list"
[[group]]
name = "hall"
interval = "10s"
keep = "all"
[[group]]
name = "roof"
interval = "20s"
selftest = "never"
)");
    write("a.list", R"([[device]]
name = "b"
address = "10.0.0.2"
groups = ["roof", "hall"]
[[device]]
name = "a"
address = "10.0.0.1"
interval = "1h"
keep = "changes"
groups = ["hall"]
[[device]]
name = "c"
address = "10.0.0.3"
port = 7
)");
    ASSERT_THAT(mistakes(), IsEmpty());
    const auto told = [](const Device &d) {
        return fmt::format("{} {} {} {} {}", d.name, d.interval.count(), d.selftest.count(),
                           d.keep == Keep::all ? "all" : "changes", d.port);
    };
    const std::vector<Device> &devices = loaded.inventory.devices;
    ASSERT_THAT(devices, SizeIs(3));
    EXPECT_EQ(told(devices[0]), "a 3600 86400 changes 9099");
    EXPECT_EQ(told(devices[1]), "b 10 0 all 9099") << "the shortest time of its groups, and all";
    EXPECT_EQ(told(devices[2]), "c 120 86400 changes 7");
    EXPECT_EQ(loaded.inventory.announce, 9098) << "as it listens";
}

TEST_F(InventoryTest, AllMistakesAreFoundWithTheirPlaces) {
    write("fleet.toml", R"(intervall = "60s"
interval = "60"
listen = 70000
include = "more.toml"
[web]
bind = "0.0.0.0:8098"
token = "token"
[limits]
silence = "0s"
[[group]]
name = "hall"
[[group]]
name = "hall"
[[series]]
collector = "pump"
)");
    write("token", "short\n");
    write("more.toml", R"([[device]]
name = "a"
address = "10.0.0.1"
groups = ["halls"]
[[device]]
name = "a"
address = "10.0.0.1"
[[device]]
name = "b\n"
address = "pump.example"
)");
    EXPECT_THAT(
        mistakes(),
        ElementsAre("fleet.toml:1 there is no key 'intervall' here", "fleet.toml:2 interval",
                    "fleet.toml:3 listen", "fleet.toml:7 token", "fleet.toml:9 silence",
                    "fleet.toml:12 there is another group \"hall\"",
                    "fleet.toml:14 a series needs a collector and a key",
                    "more.toml:1 there is no group \"halls\"",
                    "more.toml:5 there is another device \"a\", at " + (scratch / "more.toml"),
                    "more.toml:5 \"a\" has this address and port, too",
                    "more.toml:8 a device needs a name and an address", "more.toml:9 name",
                    "more.toml:10 address"));
    for (const char *bind :
         {"0.0.0.0:8098", "127.0.0.1", "127.0.0.1:70000", "here:8098", ":8098"}) {
        write("fleet.toml", fmt::format("[web]\nbind = \"{}\"", bind));
        EXPECT_THAT(mistakes(), ElementsAre("fleet.toml:2 bind")) << bind;
    }
    write("fleet.toml", "interval = \"60s\n");
    EXPECT_THAT(mistakes(), SizeIs(1)) << "no TOML at all";
    write("fleet.toml", "include = [\"gone.toml\", \"*.none\"]");
    EXPECT_THAT(mistakes(), ElementsAre("fleet.toml:1 include")) << "a pattern may match nothing";
    const Overlay overlay{scratch / "gone.toml", "", "gone.csv", {}};
    EXPECT_THAT(load_inventory(scratch / "fleet.toml", &overlay).complaints, IsEmpty());
    write("fleet.toml", "database = \"mysql://a/b\"");
    EXPECT_THAT(mistakes(), ElementsAre("fleet.toml:1 database"));
    write("fleet.toml", "database = \"postgres://a@b/c\"\ninclude = \"*.none\"");
    EXPECT_THAT(mistakes(), IsEmpty());
    write("a.toml", "group = [{ name = \"hall\" }]\n[[device]]\n[[device]]\n[[series]]\n");
    write("fleet.toml", "keep = \"all\"\ninterval = \"1s\"\ndatabase = \"postgres://a@b/c\"\n"
                        "include = \"a.toml\"\n[retention]\n[limits]\n");
    EXPECT_THAT(mistakes(),
                testing::IsSupersetOf({"a.toml:1 group", "a.toml:2 device", "a.toml:4 series",
                                       "fleet.toml:1 keep", "fleet.toml:2 interval",
                                       "fleet.toml:5 retention"}))
        << "they are for all collectors";
    EXPECT_THAT(loaded.complaints.at(0).text, testing::HasSubstr("dtfleet import"));
}

constexpr const char *rich = R"(interval = "2m"
keep = "all"
listen = 7
[retention]
age = "never"
long_age = "3d"
size = "5GB"
[[group]]
name = "hall \" ü"
interval = "10s"
selftest = "never"
keep = "changes"
metrics = true
[[group]]
name = "roof"
selftest = "1d"
[[series]]
collector = "pu\u0000mp\n"
section = 4294967295
key = 0
name = "speed"
unit = "µm"
signed = true
log = false
[[series]]
collector = ""
key = 4294967295
log = true
[[device]]
name = "b"
address = "10.0.0.2"
port = 1
groups = ["roof", "hall \" ü"]
identity = 0x0701
command = 2
enabled = false
[[device]]
name = "a"
address = "10.0.0.1"
interval = "3650d"
selftest = "7s"
)";

TEST_F(InventoryTest, WhatIsSharedComesBackFromItsTextAsItWas) {
    write("fleet.toml", rich);
    const Inventory before = checked(load_shared(scratch / "fleet.toml"));
    const Loaded after = load_shared_text(shared_text(before));
    EXPECT_EQ(text_of(after.complaints), "");
    EXPECT_EQ(after.inventory.devices, before.devices);
    EXPECT_EQ(after.inventory.groups, before.groups);
    EXPECT_EQ(after.inventory.series, before.series);
    EXPECT_EQ(after.inventory.retention, before.retention);
    EXPECT_THAT(before.devices, SizeIs(2));
    EXPECT_EQ(before.devices[1].interval, 10s);
    EXPECT_EQ(joined(before, after.inventory).listen, 7);
    EXPECT_FALSE(changes_between(before, after.inventory).any());
}

TEST_F(InventoryTest, OfTwoItIsToldWhatHasChanged) {
    const auto with = [](const std::string &text) {
        return checked(load_shared_text(text)); // name, address, interval
    };
    const auto device = [](const char *name, int host, const char *more) {
        return fmt::format("[[device]]\nname = \"{}\"\naddress = \"10.0.0.{}\"\n{}\n", name, host,
                           more);
    };
    const Inventory before = with(device("a", 1, "") + device("c", 3, "") + device("d", 4, "") +
                                  device("e", 5, "") + device("g", 7, ""));
    const Inventory after =
        with(device("b", 2, "") + device("c", 3, "port = 7") + device("d", 4, "interval = \"1s\"") +
             device("e", 5, "") + device("f", 6, "") + "[[series]]\ncollector = \"c\"\nkey = 1");
    const InventoryChanges changes = changes_between(before, after);
    EXPECT_THAT(changes.added, ElementsAre("b", "f"));
    EXPECT_THAT(changes.changed, ElementsAre("c", "d"));
    EXPECT_THAT(changes.gone, ElementsAre("a", "g"));
    EXPECT_THAT(changes.replanned, ElementsAre("d"));
    EXPECT_EQ(changes.groups + 10 * changes.series + 100 * changes.retention, 10);
}

TEST_F(InventoryTest, OneMistakeInAHundredThousandLines) {
    std::string text;
    for (int i = 0; i < 25'000; ++i)
        text += fmt::format("[[device]]\nname = \"d{}\"\naddress = \"10.{}.{}.1\"\n{}\n", i,
                            i / 256, i % 256, i == 20'000 ? "port = 0" : "");
    write("fleet.toml", text);
    EXPECT_THAT(mistakes(), ElementsAre("fleet.toml:80004 port"));
}

} // namespace
} // namespace dtfleet
