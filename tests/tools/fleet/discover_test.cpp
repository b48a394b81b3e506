// One question to a whole network.
#include "fleet/engine/discover.h"
#include "fleet/inventory/inventory.h"
#include "fleet/simulate/simulator.h"
#include "samples.h"

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <thread>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Discover, FindsWhoAnswersAndWritesAnInventory) {
    SimulatorOptions options;
    options.devices = 140;
    options.port = 0;
    options.manners = {Manner::good, Manner::dead, Manner::clashing, Manner::good};
    Loop loop;
    Simulator simulator(options, loop);
    std::atomic<bool> is_over = false;
    std::thread devices([&] {
        while (!is_over) {
            loop.wait(std::min(simulator.next_pass(), now() + Time(10ms)));
            simulator.pass();
        }
    });
    const std::vector<Found> found = discover("127.255.255.255", simulator.port(), 2s);
    is_over = true;
    devices.join();
    ASSERT_THAT(found, SizeIs(105)) << "all but the dead ones, each once";
    EXPECT_EQ(found[0].address, "127.1.0.1");
    EXPECT_EQ(found[3].address, "127.1.0.5");
    EXPECT_EQ(found[3].identity, 0x0400);
    EXPECT_LE(simulator.counts().commands, 2 * 105) << "each is asked twice at most";
    EXPECT_EQ(simulator.counts().runs, 0) << "they are let go at once";

    const Scratch scratch;
    std::ofstream(scratch / "found.toml") << inventory_of(found, 7);
    const Loaded loaded = load_inventory(scratch / "found.toml");
    EXPECT_THAT(loaded.complaints, IsEmpty());
    ASSERT_THAT(loaded.inventory.devices, SizeIs(105));
    const Device *device = loaded.inventory.find("127.1.0.5");
    ASSERT_TRUE(device);
    EXPECT_EQ(device->identity, 0x0400);
    EXPECT_EQ(device->port, 7);
}

} // namespace
} // namespace dtfleet
