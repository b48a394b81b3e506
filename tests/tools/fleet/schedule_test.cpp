// Who is asked when: tokens, turns and places.
#include "fleet/engine/admission.h"
#include "fleet/engine/schedule.h"
#include "fleet/engine/tokens.h"

#include <gmock/gmock.h>

#include <set>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;

TEST(Tokens, NeverComeTwiceAndStayInTheirRange) {
    Tokens tokens({1, 2});
    std::set<uint32_t> seen;
    uint32_t least = UINT32_MAX, most = 0;
    for (int i = 0; i < 20'000; ++i) {
        const uint32_t token = tokens.draw();
        least = std::min(least, token);
        most = std::max(most, token);
        ASSERT_TRUE(seen.insert(token).second) << "draw " << i;
    }
    EXPECT_GE(least, 1u << 24);
    EXPECT_LT(most, 1u << 31);
    EXPECT_GT(most - least, 2'000'000'000) << "they use their whole range";
    EXPECT_NE(Tokens({1, 3}).draw(), *seen.begin());
    EXPECT_NE(Tokens().draw(), Tokens().draw()) << "each with a secret of its own";
}

TEST(Schedule, TurnsKeepTheirPhaseAndFailuresMakeThemRarer) {
    EXPECT_EQ(next_turn(0s, 60s, 7s), Time(7s));
    EXPECT_EQ(next_turn(7s, 60s, 7s), Time(67s)) << "a turn is not its own next one";
    EXPECT_EQ(next_turn(130s, 60s, 7s), Time(187s));
    std::set<Time> phases;
    for (int i = 0; i < 1000; ++i)
        phases.insert(phase_of("pump" + std::to_string(i), 60s) / 1s * 1s);
    EXPECT_EQ(phases.size(), 60) << "a thousand devices meet every second of the minute";
    EXPECT_LT(*phases.rbegin(), Time(60s));
    EXPECT_EQ(interval_after(0, 60s), Time(60s));
    EXPECT_EQ(interval_after(2, 60s), Time(240s));
    EXPECT_EQ(interval_after(1000, 60s), Time(10min));
    EXPECT_EQ(interval_after(1000, 1h), Time(10h));
}

TEST(Schedule, AnAgendaHasOneTimeAPlace) {
    Agenda agenda(3);
    EXPECT_EQ(agenda.next(), Agenda::never);
    agenda.set(0, 5s);
    agenda.set(1, 4s);
    agenda.set(1, 6s); // later than before
    agenda.set(2, 1s);
    agenda.clear(2);
    size_t place = 9;
    EXPECT_EQ(agenda.next(), Time(5s));
    EXPECT_FALSE(agenda.take(4s, place));
    EXPECT_TRUE(agenda.take(6s, place));
    EXPECT_EQ(place, 0);
    EXPECT_TRUE(agenda.take(6s, place));
    EXPECT_EQ(place, 1);
    EXPECT_FALSE(agenda.take(1h, place));
}

using Rank = Admission::Rank;

struct Places {
    explicit Places(Limits limits) : admission(limits) {}
    size_t taken() {
        size_t count = 0;
        for (size_t device; admission.take(device); ++count) last = device;
        return count;
    }
    Admission admission;
    size_t last = 0;
};

in_addr_t in_subnet(uint32_t number) { return htonl(0x0A000001 + (number << 8)); }

TEST(Admission, LimitsHoldPerSubnetAndOverAll) {
    Limits limits;
    limits.waiting = 10;
    limits.open = 3;
    limits.waiting_per_subnet = 4;
    limits.per_subnet = 2;
    Places places(limits);
    for (size_t i = 0; i < 20; ++i) places.admission.add(i, in_subnet(0), Rank::usual);
    EXPECT_EQ(places.taken(), 4) << "of one subnet";
    for (size_t i = 20; i < 40; ++i)
        places.admission.add(i, in_subnet(static_cast<uint32_t>(i)), Rank::usual);
    EXPECT_EQ(places.taken(), 6)
        << "no more than may wait; others are not held up by the full subnet";
    places.admission.connect(0);
    places.admission.connect(1);
    EXPECT_EQ(places.taken(), 2) << "who has connected waits no longer";
    EXPECT_GE(places.last, 20) << "and fills its subnet";
    places.admission.connect(2);
    EXPECT_EQ(places.taken(), 0) << "no more than may be connected";
    places.admission.end(0);
    EXPECT_EQ(places.taken(), 1);
    EXPECT_EQ(places.admission.waiting(), 10);
    EXPECT_EQ(places.admission.connected(), 2);

    Places narrow(limits);
    for (size_t i = 0; i < 20; ++i) narrow.admission.add(i, in_subnet(0), Rank::usual);
    EXPECT_EQ(narrow.taken(), 4);
    narrow.admission.connect(0);
    EXPECT_EQ(narrow.taken(), 1);
    narrow.admission.connect(1);
    EXPECT_EQ(narrow.taken(), 0) << "of one subnet, connected";
    narrow.admission.end(1);
    EXPECT_EQ(narrow.taken(), 1);
}

TEST(Admission, DevicesThatFailTakeAQuarterAtMost) {
    Limits limits;
    limits.waiting = 8;
    Places places(limits);
    for (size_t i = 0; i < 20; ++i) places.admission.add(i, in_subnet(1), Rank::backed_off);
    EXPECT_EQ(places.taken(), 2);
    for (size_t i = 20; i < 40; ++i) places.admission.add(i, in_subnet(1), Rank::usual);
    EXPECT_EQ(places.taken(), 6);
    EXPECT_GE(places.last, 20);
    places.admission.end(0);
    EXPECT_EQ(places.taken(), 1);
    EXPECT_GE(places.last, 20) << "those that answer come first";
    places.admission.end(1);
    EXPECT_EQ(places.taken(), 1);
    EXPECT_LT(places.last, 20) << "but for one: it may be well again";

    limits.waiting = 40;
    limits.waiting_per_subnet = 4;
    Places narrow(limits);
    for (size_t i = 0; i < 20; ++i) narrow.admission.add(i, in_subnet(1), Rank::backed_off);
    EXPECT_EQ(narrow.taken(), 1) << "of their subnet's places, too";
    for (size_t i = 20; i < 40; ++i) narrow.admission.add(i, in_subnet(1), Rank::usual);
    EXPECT_EQ(narrow.taken(), 3);
}

TEST(Window, ShrinksWhenAnswersTakeTwiceAsLongAndGrowsAgain) {
    Window window(64);
    const auto answers = [&](Time at, Time delay) {
        for (int i = 0; i < 32; ++i) window.answered(at, delay);
    };
    answers(1s, 20ms);
    answers(2s, 40ms);
    EXPECT_EQ(window.size(), 64) << "noise";
    answers(3s, 50ms);
    EXPECT_EQ(window.size(), 48);
    for (Time at = 4s; at < 50s; at += 1s) answers(at, 50ms);
    EXPECT_EQ(window.size(), 4) << "never none";
    for (int i = 0; i < 100; ++i) window.went_well();
    EXPECT_EQ(window.size(), 14);
    answers(100s, 50ms);
    EXPECT_EQ(window.size(), 14) << "what was good more than a minute ago is forgotten";
}

} // namespace
} // namespace dtfleet
