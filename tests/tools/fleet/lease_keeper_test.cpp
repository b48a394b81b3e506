// What goes between the engine and the leases in the database, and when.
#include "fleet/service/lease_keeper.h"
#include "fleet/store/store.h"

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
};

Lease lease(const std::string &name) { return {.device = 1, .epoch = 1, .due = 1, .name = name}; }

class TableLeases final : public Leases {
public:
    explicit TableLeases(Table &table) : table_(table) {}
    Claimed claim(size_t most, Duration, Duration length) override {
        const std::lock_guard lock(table_.mutex);
        check();
        Claimed claimed{5'000'000, 4, {}};
        table_.lengths.push_back(length);
        while (claimed.leases.size() < most && !table_.free.empty()) hand_over(claimed);
        return claimed;
    }
    Claimed claim_one(const std::string &, Duration) override {
        const std::lock_guard lock(table_.mutex);
        check();
        Claimed claimed;
        if (!table_.free.empty()) hand_over(claimed);
        return claimed;
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

private:
    void check() const {
        if (table_.is_away) throw Unavailable("nobody answers");
        table_.asked = now();
    }
    void hand_over(Claimed &claimed) {
        claimed.leases.push_back(table_.free.front());
        table_.held.insert(table_.free.front().name);
        table_.free.erase(table_.free.begin());
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
    open();
    const Time before = now();
    keeper->put({.wanted = 2, .listed = 100});
    const Grants grants = take_news();
    EXPECT_THAT(grants.claimed, SizeIs(2));
    const LeaseTimes times = LeaseTimes::of(Seconds(60), Seconds(0));
    EXPECT_EQ(times.length, 77s);
    EXPECT_EQ(table.lengths.at(0), 77s);
    EXPECT_LE(grants.claimed[0].until, table.asked + times.length - times.margin);
    EXPECT_GE(grants.claimed[0].until, before + times.length - times.margin);
    EXPECT_LE(grants.ahead, 5s - before);
    EXPECT_GE(grants.ahead, 5s - now());
    EXPECT_EQ(grants.share, 0U);
    std::this_thread::sleep_for(300ms); // longer than it waits between visits
    EXPECT_THAT(table.free, SizeIs(3)) << "nothing was wanted";
    set_away(true);
    keeper->put({.wanted = 1, .returned = {grants.claimed[0].lease}});
    while (keeper->counts().trouble.empty()) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(keeper->counts().trouble, "nobody answers");
    set_away(false);
    until([&] { return table.held == std::set<std::string>{"b", "c"}; });
    keeper.reset(); // and what nobody has taken from it
    EXPECT_EQ(table.held, std::set<std::string>{"b"});
}

TEST_F(Keeping, RenewsAndSharesWhatIsKept) {
    open(Seconds(600));
    keeper->put({.wanted = 2, .listed = 100});
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

} // namespace
} // namespace dtfleet
