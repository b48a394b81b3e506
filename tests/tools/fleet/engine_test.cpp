// A fleet in one process: the engine asks, the simulator answers.
#include "fleet/engine/engine.h"
#include "fleet/simulate/simulator.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>

#include <map>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::Field;
using testing::SizeIs;

class Kept : public Outlet {
public:
    bool has_room() const override { return true; }
    void put(RunRecord run) override { runs[run.device].push_back(std::move(run)); }
    std::map<std::string, std::vector<RunRecord>> runs;
};

struct Fleet {
    explicit Fleet(SimulatorOptions options) : simulator(options, loop) {
        inventory.listen = 0; // any free port
        for (uint32_t i = 0; i < options.devices; ++i) {
            Device device;
            device.name = std::to_string(i);
            device.address = Simulator::address_of(i);
            inet_pton(AF_INET, device.address.c_str(), &device.ip);
            device.port = simulator.port();
            device.interval = Seconds(1);
            inventory.devices.push_back(device);
        }
    }

    template <typename Done> void run_until(Done done) {
        if (!engine) engine.emplace(std::make_shared<Inventory>(inventory), loop, kept);
        while (!done()) {
            loop.wait(std::min({engine->next_pass(), simulator.next_pass(), now() + Time(50ms)}));
            simulator.pass();
            engine->pass();
        }
    }

    Loop loop;
    Simulator simulator;
    Inventory inventory;
    Kept kept;
    std::optional<Engine> engine;
};

TEST(Engine, AsksEachDeviceInItsTurnsAndTakesWhatItSends) {
    SimulatorOptions options;
    options.devices = 50;
    options.port = 0;
    Fleet fleet(options);
    fleet.run_until([&] { return fleet.simulator.counts().runs >= 150; });
    fleet.run_until([&, until = now() + Time(200ms)] { return now() > until; });
    EXPECT_LE(fleet.simulator.counts().doubles, fleet.engine->statistics().resends);
    EXPECT_EQ(fleet.simulator.counts().overlaps, 0);
    ASSERT_THAT(fleet.kept.runs, SizeIs(50));
    for (const auto &[device, runs] : fleet.kept.runs) {
        EXPECT_THAT(runs, Each(Field(&RunRecord::outcome, Outcome::whole)));
        ASSERT_THAT(runs.front().samples.list, SizeIs(100));
        EXPECT_EQ(runs.front().samples.list[0].number, std::stoul(device) * 1000 + 0);
        EXPECT_EQ(*runs.front().identity, std::stoul(device) << 8);
    }
}

// Each kind of bad device costs its own runs and nobody else's.
TEST(Engine, BadDevicesCostTheirOwnRunsAlone) {
    SimulatorOptions options;
    options.devices = 16;
    options.port = 0;
    options.manners = {Manner::good,   Manner::dead,     Manner::slow,  Manner::trickle,
                       Manner::broken, Manner::clashing, Manner::empty, Manner::logging};
    Fleet fleet(options);
    fleet.inventory.limits.run = Seconds(4);
    const auto has_whole = [&](const char *device) {
        return std::any_of(fleet.kept.runs[device].begin(), fleet.kept.runs[device].end(),
                           [](const RunRecord &run) { return is_whole(run.outcome); });
    };
    fleet.run_until([&] {
        return has_whole("0") && has_whole("5") && has_whole("6") && has_whole("7") &&
               !fleet.kept.runs["1"].empty() && !fleet.kept.runs["2"].empty() &&
               !fleet.kept.runs["3"].empty() && !fleet.kept.runs["4"].empty();
    });
    const auto outcome = [&](const char *device) { return fleet.kept.runs[device].at(0).outcome; };
    EXPECT_EQ(outcome("1"), Outcome::unanswered);
    EXPECT_EQ(outcome("2"), Outcome::too_long) << "a second before each of its messages";
    EXPECT_EQ(outcome("3"), Outcome::too_long) << "never silent, and never done";
    EXPECT_EQ(outcome("4"), Outcome::malformed);
    EXPECT_THAT(fleet.kept.runs["4"][0].reason, testing::HasSubstr("unknown message type"));
    EXPECT_EQ(*fleet.kept.runs["5"].at(0).identity, 0xFFFF);
    EXPECT_THAT(fleet.kept.runs["6"].at(0).samples.list, testing::IsEmpty());
    EXPECT_GT(fleet.kept.runs["7"].at(0).samples.list.size(), 100);
}

} // namespace
} // namespace dtfleet
