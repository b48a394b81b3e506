// A fleet in one process: the engine asks, the simulator answers.
#include "simulated.h"

#include "host/socket.h"

#include <gmock/gmock.h>

#include <sys/socket.h>

#include <array>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::Field;
using testing::SizeIs;

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
    options.devices = 18;
    options.port = 0;
    options.manners = {Manner::good,    Manner::dead,    Manner::slow,
                       Manner::trickle, Manner::broken,  Manner::clashing,
                       Manner::empty,   Manner::logging, Manner::stuck};
    Fleet fleet(options);
    fleet.inventory.limits.silence = Seconds(3);
    fleet.inventory.limits.run = Seconds(4);
    const auto has_whole = [&](const char *device) {
        return std::any_of(fleet.kept.runs[device].begin(), fleet.kept.runs[device].end(),
                           [](const RunRecord &run) { return is_whole(run.outcome); });
    };
    fleet.run_until([&] {
        return has_whole("0") && has_whole("5") && has_whole("6") && has_whole("7") &&
               !fleet.kept.runs["1"].empty() && !fleet.kept.runs["2"].empty() &&
               !fleet.kept.runs["3"].empty() && !fleet.kept.runs["4"].empty() &&
               !fleet.kept.runs["8"].empty();
    });
    const auto outcome = [&](const char *device) { return fleet.kept.runs[device].at(0).outcome; };
    EXPECT_EQ(outcome("1"), Outcome::unanswered);
    EXPECT_EQ(outcome("2"), Outcome::too_long) << "a second before each of its messages";
    EXPECT_EQ(outcome("3"), Outcome::too_long) << "never silent, and never done";
    EXPECT_EQ(outcome("4"), Outcome::malformed);
    EXPECT_THAT(fleet.kept.runs["4"][0].reason, testing::HasSubstr("unknown message type"));
    EXPECT_EQ(outcome("8"), Outcome::silent);
    EXPECT_THAT(fleet.kept.runs["8"][0].reason,
                testing::MatchesRegex("silent for 3 s, after [0-9]+ messages and [0-9]+ bytes"));
    EXPECT_EQ(*fleet.kept.runs["5"].at(0).identity, 0xFFFF);
    EXPECT_THAT(fleet.kept.runs["6"].at(0).samples.list, testing::IsEmpty());
    EXPECT_GT(fleet.kept.runs["7"].at(0).samples.list.size(), 100);
}

// Who failed long waits, and who is paused is left alone, however the service was ended.
TEST(Engine, GoesOnFromWhatWasKnownOfTheDevices) {
    SimulatorOptions options;
    options.devices = 4;
    options.port = 0;
    Fleet fleet(options);
    const Microseconds time = wall_microseconds();
    DeviceState failing, paused, failed_long_ago;
    failing.name = "0";
    failing.failures = 6;
    failing.last_try = time;
    paused.name = "1";
    paused.paused_until = time + 3'600'000'000;
    failed_long_ago.name = "2";
    failed_long_ago.failures = 6;
    failed_long_ago.last_try = time - 3'600'000'000;
    fleet.start().restore({failing, paused, failed_long_ago});
    fleet.run_until([&] { return fleet.kept.runs["3"].size() >= 3; });
    EXPECT_THAT(fleet.kept.runs["0"], testing::IsEmpty());
    EXPECT_THAT(fleet.kept.runs["1"], testing::IsEmpty());
    EXPECT_THAT(fleet.kept.runs["2"], testing::Not(testing::IsEmpty()));
}

// Who is off, or comes later, has the pause that it was given meanwhile; who is asked by hand
// waits for the network, and no longer than there is a device.
TEST(Engine, InventoriesChangeUnderPausesAndQuestions) {
    SimulatorOptions options;
    options.devices = 5;
    options.port = 0;
    Fleet fleet(options);
    const auto all = std::make_shared<Inventory>(fleet.inventory);
    fleet.inventory.devices[1].enabled = fleet.inventory.devices[2].enabled = false;
    fleet.inventory.devices.erase(fleet.inventory.devices.begin() + 3);
    Engine &engine = fleet.start();
    DeviceState off, gone;
    off.name = "1";
    gone.name = "3";
    off.paused_until = gone.paused_until = wall_microseconds() + 3'600'000'000;
    engine.restore({off, gone});
    engine.pause("2", now() + 1h);
    EXPECT_EQ(engine.hold(inet_addr("127.255.255.255"), now() + 3s), 0);

    std::vector<Outcome> answers;
    const auto ask = [&](const char *device) {
        std::string reason;
        engine.ask(
            device, Kind::selftest, [&](const RunRecord &run) { answers.push_back(run.outcome); },
            reason);
        return reason;
    };
    EXPECT_THAT(ask("1"), testing::HasSubstr("is off"));
    EXPECT_EQ(ask("3"), "there is no such device");
    EXPECT_EQ(ask("nobody"), "there is no such device");
    EXPECT_EQ(ask("0"), "");
    EXPECT_EQ(ask("4"), "");
    engine.pass();
    EXPECT_EQ(ask("4"), "it is being asked already");
    auto others = std::make_shared<Inventory>(*all);
    others->devices.erase(others->devices.begin());
    engine.take_inventory(others);
    engine.pass();
    engine.pause("4", now() + 1h);
    EXPECT_THAT(answers, testing::IsEmpty());
    fleet.run_until([&] { return answers.size() == 2; });
    EXPECT_THAT(answers, testing::UnorderedElementsAre(Outcome::stopped, Outcome::whole));

    engine.pause("4", now());
    fleet.run_until([&] { return fleet.kept.runs["4"].size() >= 4; });
    EXPECT_THAT(fleet.kept.runs, SizeIs(1)) << "the others are paused";
    engine.take_inventory(all);
    fleet.run_until([&] { return fleet.kept.runs["0"].size() >= 2; });
    EXPECT_THAT(fleet.kept.runs, SizeIs(2));
}

// A device that is played by hand.
struct Hand {
    Hand() : socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        sockaddr_in own = dtctl::resolve("127.0.0.1", 0);
        (void)::bind(socket.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own);
    }
    bool is_asked() { return ::recv(socket.get(), words.data(), sizeof words, 0) == 16; }
    dtctl::Fd connect() const {
        dtctl::Fd made(::socket(AF_INET, SOCK_STREAM, 0));
        const sockaddr_in to = dtctl::resolve("127.0.0.1", static_cast<uint16_t>(words[3]));
        (void)::connect(made.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to);
        return made;
    }
    dtctl::Fd open(uint32_t token) const {
        dtctl::Fd made = connect();
        const std::string opening = messages_of({}, token, false).front();
        (void)::send(made.get(), opening.data(), opening.size(), MSG_NOSIGNAL);
        return made;
    }
    static bool is_closed(const dtctl::Fd &fd) {
        char byte;
        return ::recv(fd.get(), &byte, 1, MSG_DONTWAIT) == 0;
    }

    dtctl::Fd socket;
    std::array<uint32_t, 4> words{}; // of the command: its size, number and token, and our port
};

TEST(Engine, TheTokenAloneSaysWhoseRunItIs) {
    SimulatorOptions options;
    options.devices = 1;
    options.port = 0;
    Fleet fleet(options);
    Hand hand;
    fleet.inventory.devices[0].address = "127.0.0.1";
    inet_pton(AF_INET, "127.0.0.1", &fleet.inventory.devices[0].ip);
    fleet.inventory.devices[0].port = dtctl::local_port(hand.socket);
    fleet.run_until([&] { return hand.is_asked(); });
    const uint32_t token = hand.words[2];
    const dtctl::Fd wrong = hand.open(token ^ 1);
    dtctl::Fd right = hand.open(token);
    fleet.run_until([&] { return hand.is_closed(wrong); });
    char acknowledgement = 0;
    fleet.run_until([&] { return ::recv(right.get(), &acknowledgement, 1, MSG_DONTWAIT) == 1; });
    EXPECT_EQ(acknowledgement, 6);
    const dtctl::Fd second = hand.open(token);
    fleet.run_until([&] { return hand.is_closed(second); });
    (void)hand.connect(); // and gone again
    const Statistics &statistics = fleet.engine->statistics();
    fleet.run_until([&] { return statistics.strangers == 1; });
    EXPECT_EQ(statistics.doubles, 2);
    const linger at_once{1, 0};
    (void)::setsockopt(right.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    right = dtctl::Fd();
    fleet.run_until([&] { return !fleet.kept.runs["0"].empty(); });
    EXPECT_EQ(fleet.kept.runs["0"][0].outcome, Outcome::reset);
    EXPECT_THAT(fleet.kept.runs["0"][0].reason, testing::HasSubstr("after 1 messages"));
    fleet.run_until([&] { return hand.is_asked() && hand.words[2] != token; });
    const dtctl::Fd late = hand.open(token);
    fleet.run_until([&] { return hand.is_closed(late); });
    EXPECT_EQ(statistics.doubles, 3) << "that run is over";
}

} // namespace
} // namespace dtfleet
