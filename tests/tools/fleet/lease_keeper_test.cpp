// What goes between the engine and the leases in the database, and when.
#include "fleet/service/home.h"
#include "fleet/service/lease_keeper.h"
#include "fleet/service/pace.h"
#include "fleet/store/store.h"
#include "samples.h"

#include <gmock/gmock.h>

#include <poll.h>

#include <atomic>
#include <set>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

struct Table {
    std::mutex mutex;
    bool is_away = false;
    std::vector<Lease> free;
    std::set<std::string> held;
    std::vector<Leases::Duration> lengths;
    Time asked{}; // last, for a lease
    Time told{};
    int64_t inventory = 1;
    CollectorState state;
    bool has_left = false;
};

Lease lease(const std::string &name) { return {.device = 1, .epoch = 1, .due = 1, .name = name}; }

class TableLeases final : public Leases {
public:
    explicit TableLeases(Table &table) : table_(table) {}
    Told tell(const CollectorState &us) override {
        const std::lock_guard lock(table_.mutex);
        if (table_.is_away) throw Unavailable("nobody answers");
        table_.told = now();
        table_.state = us;
        return {5'000'000, table_.inventory, std::vector<CollectorState>(4)};
    }
    std::vector<Lease> claim(size_t most, Duration, Duration length, int64_t inventory) override {
        const std::lock_guard lock(table_.mutex);
        check();
        table_.lengths.push_back(length);
        std::vector<Lease> claimed;
        while (inventory == table_.inventory && claimed.size() < most && !table_.free.empty())
            claimed.push_back(hand_over());
        return claimed;
    }
    std::optional<Lease> claim_one(const std::string &, Duration) override {
        const std::lock_guard lock(table_.mutex);
        check();
        return table_.free.empty() ? std::nullopt : std::optional(hand_over());
    }
    std::vector<bool> renew(std::span<const Lease> leases, Duration) override {
        const std::lock_guard lock(table_.mutex);
        check();
        std::vector<bool> ours;
        for (const Lease &one : leases) ours.push_back(table_.held.count(one.name) != 0);
        return ours;
    }
    void release(std::span<const Lease> leases) override {
        const std::lock_guard lock(table_.mutex);
        check();
        for (const Lease &one : leases) table_.held.erase(one.name);
    }
    void leave() override { table_.has_left = true; }

private:
    void check() const {
        if (table_.is_away) throw Unavailable("nobody answers");
        table_.asked = now();
    }
    Lease hand_over() {
        const Lease lease = table_.free.front();
        table_.held.insert(lease.name);
        table_.free.erase(table_.free.begin());
        return lease;
    }
    Table &table_;
};

struct Keeping : testing::Test {
    Keeping() {
        for (const char *name : {"a", "b", "c", "d", "e"}) table.free.push_back(lease(name));
    }
    void open(Seconds grace = Seconds(0)) {
        keeper.reset();
        keeper.emplace([this] { return std::make_unique<TableLeases>(table); }, Seconds(60), grace);
    }
    template <typename Done> void until(Done done) {
        for (;;) {
            {
                const std::lock_guard lock(table.mutex);
                if (done()) return;
            }
            std::this_thread::sleep_for(1ms);
        }
    }
    Grants take_news() {
        pollfd news{keeper->fd(), POLLIN, 0};
        (void)::poll(&news, 1, -1);
        return keeper->take();
    }
    void set_away(bool is_away) {
        const std::lock_guard lock(table.mutex);
        table.is_away = is_away;
    }
    Table table;
    std::optional<LeaseKeeper> keeper;
};

// The holder's end is before the database's, however long the answer took.
TEST_F(Keeping, BringsAsManyAsAreWantedAndTakesBackWhatIsNot) {
    table.inventory = 0; // as long as nobody has brought one nothing is claimed,
    open();
    const Time before = now();
    keeper->put({.wanted = 2, .listed = 100});
    until([&] { return table.told != Time(0); });
    std::this_thread::sleep_for(300ms); // longer than it waits between visits
    {
        const std::lock_guard lock(table.mutex);
        EXPECT_EQ(table.asked, Time(0));
        table.inventory = 1;
    }
    keeper->put({.wanted = 2, .listed = 100, .inventory = 7}); // and nothing by an old one
    until([&] { return table.asked != Time(0); });
    EXPECT_THAT(table.held, IsEmpty());
    keeper->put({.wanted = 2, .listed = 100, .inventory = 1, .state = CollectorState{"", 9}});
    const Grants grants = take_news();
    EXPECT_THAT(grants.claimed, SizeIs(2));
    const LeaseTimes times = LeaseTimes::of(Seconds(60), Seconds(0));
    EXPECT_EQ(times.length, 77s);
    EXPECT_EQ(table.lengths.at(0), 77s);
    EXPECT_LE(grants.claimed[0].until, table.asked + times.length - times.margin);
    EXPECT_GE(grants.claimed[0].until, before + times.length - times.margin);
    EXPECT_GE(grants.ahead, 5s - table.told);
    until([&] { return table.state.held == 9; }); // the others are told each second
    EXPECT_EQ(grants.share, 0U);
    std::this_thread::sleep_for(300ms); // longer than it waits between visits
    EXPECT_THAT(table.free, SizeIs(3)) << "nothing was wanted";
    set_away(true);
    keeper->put({.wanted = 1, .returned = {grants.claimed[0].lease}, .inventory = 1});
    while (keeper->counts().trouble.empty()) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(keeper->counts().trouble, "nobody answers");
    set_away(false);
    until([&] { return table.held == std::set<std::string>{"b", "c"}; });
    keeper.reset(); // and what nobody has taken from it
    EXPECT_EQ(table.held, std::set<std::string>{"b"});
    EXPECT_TRUE(table.has_left);
}

TEST_F(Keeping, RenewsAndSharesWhatIsKept) {
    open(Seconds(600));
    keeper->put({.wanted = 2, .listed = 100, .inventory = 1});
    const Grants grants = take_news();
    EXPECT_EQ(table.lengths.at(0), 677s);
    EXPECT_EQ(grants.share, 27U) << "a quarter, and a little";
    table.held.erase("b");
    const Time before = now();
    keeper->put({.renewing = {grants.claimed[0].lease, grants.claimed[1].lease}});
    const Grants renewed = take_news();
    ASSERT_THAT(renewed.renewed, SizeIs(2));
    EXPECT_GE(renewed.renewed[0].until, before + 672s);
    EXPECT_LE(renewed.renewed[0].until, table.asked + 672s);
    EXPECT_EQ(renewed.renewed[1].until, Time(0)) << "it is another's";
    EXPECT_EQ(keeper->counts().renewed + 10 * keeper->counts().lost, 11U);

    keeper->put({.fetching = {"c"}});
    const Fetched fetched = take_news().fetched.at(0);
    EXPECT_EQ(fetched.grant->lease.name, "c");
    EXPECT_LE(fetched.grant->until, table.asked + 672s);
    {
        const std::lock_guard lock(table.mutex);
        table.free.clear();
    }
    keeper->put({.fetching = {"d"}});
    EXPECT_THAT(take_news().fetched.at(0).reason, testing::HasSubstr("another collector"));
    set_away(true);
    keeper->put({.fetching = {"d"}});
    EXPECT_EQ(take_news().fetched.at(0).reason, "nobody answers");
}

// Who has the key that somebody had before knows that this one is dead.
TEST(Home, HasOneLivingOwnerAtATimeAndNoCopy) {
    const Scratch scratch;
    std::string key;
    {
        const Home first(scratch / "lock");
        key = first.key();
        EXPECT_THAT(key, testing::Not(IsEmpty()));
        EXPECT_EQ(Home(scratch / "lock").key(), "") << "the first one lives";
        std::filesystem::copy(scratch / "lock", scratch / "copy");
        const Home copy(scratch / "copy");
        EXPECT_THAT(copy.key(), testing::AllOf(testing::Not(IsEmpty()), testing::Ne(key)));
    }
    EXPECT_EQ(Home(scratch / "lock").key(), key) << "its next life";
    EXPECT_EQ(Home(scratch / "none/lock").key(), "");
}

TEST(Pace, TellsOfTheLastSecondsAlone) {
    Pace pace;
    Statistics all;
    EXPECT_EQ(pace.rate() + static_cast<double>(pace.lag()), 0);
    for (int second = 0; second <= 60; ++second) {
        pace.note(all, Time(Seconds(second)));
        all.runs[0] += second < 30 ? 100 : 2;
        all.runs[1] += 1;
        for (int i = 0; i < 3; ++i) all.lateness.add(second < 30 ? Time(9s) : Time(500ms));
    }
    EXPECT_DOUBLE_EQ(pace.rate(), 3);
    EXPECT_NEAR(static_cast<double>(pace.lag()), 500'000, 1);
}

} // namespace
} // namespace dtfleet
