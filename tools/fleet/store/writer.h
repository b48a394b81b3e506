// Carries runs from the engine to the store, on a thread of its own: a slow commit holds nobody up.
#pragma once

#include "fleet/store/outlet.h"
#include "fleet/store/store.h"
#include "host/fd.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace dtfleet {

class Writer final : public Outlet {
public:
    // Beyond them no run begins; those that are under way already are still taken.
    struct Bounds {
        size_t runs = 20'000;
        size_t bytes = 64'000'000;
        std::chrono::milliseconds farewell{10'000}; // for a database that does not take the last
    };

    struct Counts {
        uint64_t stored = 0;  // runs, committed in the order in which they were put
        uint64_t dropped = 0; // runs that can never be stored, or could not before the end
        size_t writing = 0;   // runs that wait
        bool clock_held = false;
        bool too_large = false; // as Store::is_too_large
    };

    using Work = std::function<void(Store &)>;
    using Done = std::function<void(const std::string &error)>; // empty: it has been done

    // Where the store comes from. open: opens it, at once and, while that throws Unavailable, again
    // each second on the thread. opened: called by deliver() when it is open; before, there is no
    // room.
    struct Source {
        std::function<std::unique_ptr<Store>()> open;
        std::function<void()> opened;
    };

    // Throws what else the first attempt to open the store throws.
    explicit Writer(Source source);

    // With a store that is open already.
    explicit Writer(std::unique_ptr<Store> store) : Writer(std::move(store), Bounds()) {}
    Writer(std::unique_ptr<Store> store, const Bounds &bounds);

    // Stores what has been put, and ends the thread.
    ~Writer() override;
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // From any thread.
    bool has_room() const override;
    void put(RunRecord run) override;
    std::string not_ready() const; // why there is no room; empty: there is
    Counts counts() const;

    // Does something else to the store, after the runs that were put before; `done` is kept for
    // deliver(). When the database cannot be used now, that is the error.
    void post(Work work, Done done);

    // The newest inventory, after the runs that were put before; it is tried until the store has
    // it.
    void take_inventory(std::shared_ptr<const Inventory> inventory);

    // Becomes readable when posted work is done, or the store is open: then the thread that posted
    // calls deliver(). Throws what an attempt to open the store has thrown, if it can never
    // succeed.
    int fd() const { return finished_.get(); }
    void deliver();

private:
    struct Task {
        Work work;
        Done done;
        uint64_t after; // as many runs were put before it
    };
    struct Result {
        Done done;
        std::string error;
    };

    size_t waiting() const;
    bool is_full() const;

    void start();
    void open();
    void open_again();
    void finish(Result result);

    void run();
    void pass();
    void wait();
    bool is_over();
    void set_trouble(const std::string &trouble);
    void pass_batch();
    void take_batch();
    void write_singly();
    void settle(size_t runs, bool stored);
    void pass_inventory();
    void pass_house();
    void do_tasks();

    const Bounds bounds_;
    const Source source_;
    std::unique_ptr<Store> store_; // the thread's; none until it is open
    dtctl::Fd finished_;

    mutable std::mutex mutex_; // of what follows, down to the thread's own
    std::condition_variable wake_;
    std::deque<RunRecord> queue_;
    std::deque<Task> tasks_;
    std::vector<Result> results_;
    std::shared_ptr<const Inventory> inventory_;
    uint64_t inventory_after_ = 0; // as many runs
    size_t waiting_bytes_ = 0;     // of the queue and the batch
    uint64_t put_ = 0;
    uint64_t stored_ = 0;
    uint64_t dropped_ = 0;
    bool clock_held_ = false;
    bool too_large_ = false;
    bool is_open_ = false;        // the store, and its owner knows
    std::exception_ptr hopeless_; // why it never will be
    bool is_ending_ = false;
    std::string trouble_; // of the last transaction
    std::string no_room_;

    // The thread's alone.
    std::vector<RunRecord> batch_; // that is written, again and again while that fails
    std::chrono::steady_clock::time_point next_house_{};
    std::optional<std::chrono::steady_clock::time_point> last_chance_; // when the end has begun

    std::thread thread_; // the last: it uses all of the above
};

} // namespace dtfleet
