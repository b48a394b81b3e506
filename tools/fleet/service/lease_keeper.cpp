#include "fleet/service/lease_keeper.h"

#include "host/failure.h"
#include "host/thread.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace dtfleet {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr milliseconds between(250); // visits
constexpr milliseconds again(1000);  // after one that failed
constexpr Time telling = Seconds(1); // the others of us; so soon another inventory is seen, too
constexpr size_t most_claimed = 500; // at once
constexpr size_t share_over = 20;    // a share may be larger by this part: so all find one

microseconds count_of(Time time) { return std::chrono::duration_cast<microseconds>(time); }

} // namespace

LeaseTimes LeaseTimes::of(Seconds run, Seconds grace) {
    const Time ahead = Seconds(2);
    const Time waiting = std::clamp<Time>(Time(run) / 6, Seconds(1), Seconds(10));
    const Time margin = std::clamp<Time>(Time(run) / 12, Seconds(1), Seconds(5));
    return {ahead, margin, ahead + waiting + run + margin + grace};
}

LeaseKeeper::LeaseKeeper(Open open, Seconds run, Seconds grace)
    : open_(std::move(open)), news_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      times_(LeaseTimes::of(run, grace)), keeps_(grace != Seconds(0)) {
    if (!news_) throw dtctl::Failure(dtctl::Exit::failed, std::strerror(errno));
    thread_ = dtctl::thread_without_signals([this] { this->run(); });
}

LeaseKeeper::~LeaseKeeper() {
    {
        const std::lock_guard lock(mutex_);
        is_ending_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

// ---- from the other thread ----------------------------------------------------------------------

Grants LeaseKeeper::take() {
    eventfd_t count = 0;
    (void)::eventfd_read(news_.get(), &count);
    const std::lock_guard lock(mutex_);
    wishes_.wanted = 0; // until it is known what these leave of them
    Grants grants = grants_;
    grants_.claimed.clear();
    grants_.renewed.clear();
    grants_.fetched.clear();
    return grants;
}

void LeaseKeeper::put(Wishes wishes) {
    const std::lock_guard lock(mutex_);
    wishes_.wanted = wishes.wanted;
    wishes_.listed = wishes.listed;
    wishes_.inventory = wishes.inventory;
    if (wishes.state) state_ = *wishes.state;
    wishes_.returned.insert(wishes_.returned.end(), wishes.returned.begin(), wishes.returned.end());
    if (!wishes.renewing.empty()) wishes_.renewing = std::move(wishes.renewing);
    for (std::string &device : wishes.fetching) wishes_.fetching.push_back(std::move(device));
    wake_.notify_one();
}

void LeaseKeeper::set_times(Seconds run, Seconds grace) {
    const std::lock_guard lock(mutex_);
    times_ = LeaseTimes::of(run, grace);
    keeps_ = grace != Seconds(0);
}

LeaseKeeper::Counts LeaseKeeper::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

// ---- the thread ---------------------------------------------------------------------------------

void LeaseKeeper::run() {
    for (bool is_last = false;;) {
        std::string trouble;
        try {
            visit(is_last);
        } catch (const std::exception &error) {
            trouble = error.what();
            answer_fetches(trouble);
        }
        if (is_last) return;
        is_last = wait(trouble);
    }
}

// True at the end. Whoever has got all that it asked for may want more at once.
bool LeaseKeeper::wait(const std::string &trouble) {
    std::unique_lock lock(mutex_);
    counts_.trouble = trouble;
    const auto hurries = [this] {
        return is_ending_ || !wishes_.fetching.empty() || (hurries_ && wishes_.wanted != 0);
    };
    hurries_ &= trouble.empty();
    wake_.wait_for(lock, trouble.empty() ? between : again, hurries);
    return is_ending_;
}

void LeaseKeeper::visit(bool is_last) {
    Wishes wishes;
    LeaseTimes times{};
    CollectorState state;
    std::vector<Grant> untaken; // that nobody takes any more
    {
        const std::lock_guard lock(mutex_);
        std::swap(wishes.returned, wishes_.returned);
        std::swap(wishes.renewing, wishes_.renewing);
        fetching_ = std::exchange(wishes_.fetching, {});
        wishes.wanted = wishes_.wanted;
        wishes.inventory = wishes_.inventory;
        state = state_;
        times = times_;
        if (is_last) untaken = std::exchange(grants_.claimed, {});
    }
    returned_.insert(returned_.end(), wishes.returned.begin(), wishes.returned.end());
    if (is_last)
        for (const Grant &grant : untaken) returned_.push_back(grant.lease);
    if (is_last) return leave();
    if (!leases_) leases_ = open_();
    give_back();
    if (told_ + telling <= now()) tell(state);
    fetch(times);
    if (!wishes.renewing.empty()) renew(wishes.renewing, times);
    if (wishes.wanted != 0 && wishes.inventory != 0)
        claim(std::min(wishes.wanted, most_claimed), wishes.inventory, times);
}

void LeaseKeeper::leave() {
    if (!leases_) return;
    give_back();
    leases_->leave();
}

// Here and below the clock is read before the database is asked: however late its answer comes,
// it counts from a later time than we do.
void LeaseKeeper::tell(const CollectorState &us) {
    const Time before = now();
    Leases::Told told = leases_->tell(us);
    told_ = before;
    const std::lock_guard lock(mutex_);
    grants_.ahead = microseconds(told.now) - before;
    counts_.inventory = told.inventory;
    counts_.collectors = std::move(told.collectors);
}

void LeaseKeeper::fetch(const LeaseTimes &times) {
    while (!fetching_.empty()) {
        const std::string device = fetching_.back();
        const Time before = now();
        const std::optional<Lease> claimed = leases_->claim_one(device, count_of(times.length));
        if (!claimed) {
            answer_fetches("another collector is asking it, or it is off");
            continue;
        }
        fetching_.pop_back();
        const std::lock_guard lock(mutex_);
        const Grant grant{*claimed, before + times.length - times.margin};
        grants_.fetched.push_back({device, grant, ""});
        (void)::eventfd_write(news_.get(), 1);
    }
}

void LeaseKeeper::answer_fetches(const std::string &reason) {
    const std::lock_guard lock(mutex_);
    for (const std::string &device : std::exchange(fetching_, {}))
        grants_.fetched.push_back({device, std::nullopt, reason});
    (void)::eventfd_write(news_.get(), 1);
}

void LeaseKeeper::give_back() {
    if (returned_.empty()) return;
    leases_->release(returned_);
    const std::lock_guard lock(mutex_);
    counts_.returned += returned_.size();
    returned_.clear();
}

void LeaseKeeper::renew(const std::vector<Lease> &leases, const LeaseTimes &times) {
    const Time before = now();
    const std::vector<bool> ours = leases_->renew(leases, count_of(times.length));
    const std::lock_guard lock(mutex_);
    for (size_t i = 0; i < leases.size(); ++i) {
        ++(ours[i] ? counts_.renewed : counts_.lost);
        const Time until = ours[i] ? before + times.length - times.margin : Time(0);
        grants_.renewed.push_back({leases[i], until});
    }
    (void)::eventfd_write(news_.get(), 1);
}

void LeaseKeeper::claim(size_t most, int64_t inventory, const LeaseTimes &times) {
    const Time before = now();
    const std::vector<Lease> claimed =
        leases_->claim(most, count_of(times.ahead), count_of(times.length), inventory);
    const size_t count = claimed.size();
    const std::lock_guard lock(mutex_);
    for (const Lease &lease : claimed)
        grants_.claimed.push_back({lease, before + times.length - times.margin});
    grants_.length = times.length;
    const size_t fair = wishes_.listed / std::max<size_t>(1, counts_.collectors.size());
    grants_.share = keeps_ ? fair + fair / share_over + 1 : 0;
    wishes_.wanted -= std::min(wishes_.wanted, count);
    hurries_ = count == most;
    counts_.claims += count != 0;
    counts_.claimed += count;
    if (count != 0) (void)::eventfd_write(news_.get(), 1);
}

} // namespace dtfleet
