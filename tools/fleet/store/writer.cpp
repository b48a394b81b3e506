#include "fleet/store/writer.h"

#include "host/failure.h"
#include "host/thread.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace dtfleet {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A run is stored at most a second after its end: it waits for others no longer than this, and a
// batch takes about as long to be written.
constexpr milliseconds gathering(250);
constexpr size_t many_runs = 1000; // that wait for no others
constexpr size_t bytes_a_run = 4000;

constexpr milliseconds again(1000); // after a transaction that failed
constexpr milliseconds house(1000); // between two looks at the disk and at what is too old

size_t size_of(const RunRecord &run) {
    return sizeof run + run.samples.list.size() * sizeof(Sample) + run.samples.bytes.size();
}

std::string error_of(const Writer::Work &work, Store &store) {
    try {
        work(store);
        return {};
    } catch (const std::exception &error) {
        return *error.what() != '\0' ? error.what() : "it failed";
    }
}

dtctl::Fd event_descriptor() {
    dtctl::Fd fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fd) throw dtctl::Failure(dtctl::Exit::failed, std::strerror(errno));
    return fd;
}

} // namespace

Writer::Writer(Source source) : source_(std::move(source)), finished_(event_descriptor()) {
    try {
        open();
    } catch (const Unavailable &reason) {
        trouble_ = reason.what();
    }
    start();
}

Writer::Writer(std::unique_ptr<Store> store, const Bounds &bounds)
    : bounds_(bounds), store_(std::move(store)), finished_(event_descriptor()), is_open_(true) {
    start();
}

void Writer::start() {
    thread_ = dtctl::thread_without_signals([this] { run(); });
}

Writer::~Writer() {
    {
        const std::lock_guard lock(mutex_);
        is_ending_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

// ---- from other threads -------------------------------------------------------------------------

bool Writer::has_room() const {
    const std::lock_guard lock(mutex_);
    return is_open_ && trouble_.empty() && no_room_.empty() && !is_full();
}

void Writer::put(RunRecord run) {
    const std::lock_guard lock(mutex_);
    ++put_;
    waiting_bytes_ += size_of(run);
    queue_.push_back(std::move(run));
    if (queue_.size() == 1 || queue_.size() == many_runs) wake_.notify_one();
}

std::string Writer::not_ready() const {
    const std::lock_guard lock(mutex_);
    if (!trouble_.empty() || !no_room_.empty()) return trouble_.empty() ? no_room_ : trouble_;
    if (!is_open_) return "the database is being opened";
    return is_full() ? "the database does not keep up" : "";
}

Writer::Counts Writer::counts() const {
    const std::lock_guard lock(mutex_);
    return {stored_, dropped_, waiting(), clock_held_, too_large_};
}

size_t Writer::waiting() const { return static_cast<size_t>(put_ - stored_ - dropped_); }

bool Writer::is_full() const {
    return waiting() >= bounds_.runs || waiting_bytes_ >= bounds_.bytes;
}

void Writer::post(Work work, Done done) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back({std::move(work), std::move(done), put_});
    wake_.notify_one();
}

void Writer::take_inventory(std::shared_ptr<const Inventory> inventory) {
    const std::lock_guard lock(mutex_);
    inventory_ = std::move(inventory);
    inventory_after_ = put_;
    wake_.notify_one();
}

void Writer::deliver() {
    eventfd_t count = 0;
    (void)::eventfd_read(finished_.get(), &count);
    std::vector<Result> results;
    {
        const std::lock_guard lock(mutex_);
        if (hopeless_) std::rethrow_exception(hopeless_);
        results.swap(results_);
    }
    for (const Result &result : results) result.done(result.error);
}

// ---- the thread ---------------------------------------------------------------------------------

void Writer::run() {
    while (!is_over()) {
        try {
            pass();
            set_trouble({});
        } catch (const std::exception &error) {
            set_trouble(error.what());
        }
        do_tasks();
        wait();
    }
}

void Writer::open() {
    store_ = source_.open();
    finish({[this](const std::string &) {
                source_.opened();
                const std::lock_guard lock(mutex_);
                is_open_ = true;
            },
            {}});
}

// Again, as what has locked the database or filled the disk may be gone.
void Writer::open_again() {
    if (hopeless_) std::rethrow_exception(hopeless_);
    try {
        open();
    } catch (const Unavailable &) {
        throw;
    } catch (...) {
        const std::lock_guard lock(mutex_);
        hopeless_ = std::current_exception();
        (void)::eventfd_write(finished_.get(), 1);
        throw;
    }
}

void Writer::finish(Result result) {
    const std::lock_guard lock(mutex_);
    results_.push_back(std::move(result));
    (void)::eventfd_write(finished_.get(), 1);
}

void Writer::pass() {
    if (!store_) open_again();
    pass_inventory();
    pass_batch();
    pass_house();
}

// In trouble time passes before the next attempt. Otherwise until there is something to do; and
// then a run waits for others.
void Writer::wait() {
    std::unique_lock lock(mutex_);
    if (!trouble_.empty()) {
        const bool was_ending = is_ending_;
        const auto urgent = [&] { return is_ending_ != was_ending || !tasks_.empty(); };
        wake_.wait_for(lock, is_ending_ ? again / 10 : again, urgent);
        return;
    }
    const auto hurries = [this] {
        return is_ending_ || !tasks_.empty() || inventory_ || queue_.size() >= many_runs;
    };
    const auto has_work = [&] { return hurries() || !queue_.empty(); };
    if (wake_.wait_until(lock, next_house_, has_work)) wake_.wait_for(lock, gathering, hurries);
}

// At the end all that waits is stored, or given up when the database does not take it.
bool Writer::is_over() {
    const std::lock_guard lock(mutex_);
    if (!is_ending_) return false;
    if (!store_) return true; // nothing could be put
    if (!last_chance_) last_chance_ = Clock::now() + bounds_.farewell;
    if (!trouble_.empty() && *last_chance_ <= Clock::now()) {
        dropped_ += waiting();
        return true;
    }
    return waiting() == 0 && tasks_.empty() && !inventory_;
}

void Writer::set_trouble(const std::string &trouble) {
    const std::lock_guard lock(mutex_);
    trouble_ = trouble;
}

// ---- runs ---------------------------------------------------------------------------------------

void Writer::pass_batch() {
    if (batch_.empty()) take_batch();
    if (batch_.empty()) return;
    try {
        store_->write(batch_);
        settle(batch_.size(), true);
    } catch (const dtctl::Failure &failure) {
        if (failure.code() == dtctl::Exit::broken) throw; // the database is, for every run
        write_singly();
    }
}

void Writer::take_batch() {
    const std::lock_guard lock(mutex_);
    size_t bytes = 0;
    const size_t most = store_->runs_at_once();
    while (!queue_.empty() && batch_.size() < most && bytes < most * bytes_a_run) {
        bytes += size_of(queue_.front());
        batch_.push_back(std::move(queue_.front()));
        queue_.pop_front();
    }
}

// One of them cannot be stored, whatever it holds: the others are.
void Writer::write_singly() {
    while (!batch_.empty()) {
        bool stored = true;
        try {
            store_->write({&batch_.front(), 1});
        } catch (const dtctl::Failure &failure) {
            if (failure.code() == dtctl::Exit::broken) throw;
            stored = false;
        }
        settle(1, stored);
    }
}

// The first runs of the batch are through.
void Writer::settle(size_t runs, bool stored) {
    const std::lock_guard lock(mutex_);
    const auto end = batch_.begin() + static_cast<std::ptrdiff_t>(runs);
    for (auto run = batch_.begin(); run != end; ++run) waiting_bytes_ -= size_of(*run);
    batch_.erase(batch_.begin(), end);
    (stored ? stored_ : dropped_) += runs;
}

// ---- all else -----------------------------------------------------------------------------------

void Writer::pass_inventory() {
    std::shared_ptr<const Inventory> inventory;
    {
        const std::lock_guard lock(mutex_);
        if (inventory_after_ <= stored_ + dropped_) inventory = inventory_;
    }
    if (!inventory) return;
    store_->take_inventory(*inventory);
    const std::lock_guard lock(mutex_);
    if (inventory_ == inventory) inventory_ = nullptr; // no newer one has come
}

// A slice at a time, so that runs never wait for long; without runs one after the other.
void Writer::pass_house() {
    if (Clock::now() < next_house_) return;
    std::string no_room = store_->no_room();
    const bool clock_held = store_->is_clock_held();
    const bool too_large = store_->is_too_large();
    {
        const std::lock_guard lock(mutex_);
        no_room_ = std::move(no_room);
        clock_held_ = clock_held;
        too_large_ = too_large;
    }
    const bool has_more = store_->tidy();
    next_house_ = Clock::now() + (has_more ? milliseconds(0) : house);
}

// Whatever comes of a task, its owner is told. In trouble it is not kept waiting for the runs
// before it, but learns that the database cannot be used.
void Writer::do_tasks() {
    for (;;) {
        Task task;
        {
            const std::lock_guard lock(mutex_);
            const bool is_due = !tasks_.empty() &&
                                (tasks_.front().after <= stored_ + dropped_ || !trouble_.empty());
            if (!is_due) return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        std::string error = store_ ? error_of(task.work, *store_) : not_ready();
        finish({std::move(task.done), std::move(error)});
    }
}

} // namespace dtfleet
