#pragma once

#include "base/log.h"
#include "base/trace.h"
#include "scheduler_worker.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <list>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace ff {

/// The pool of workers of one stream, shared by all decoders that are open on it: for each request
/// it picks the worker that can answer cheapest, and runs it on the thread that asks.
///
/// A result is a `T`, of which a default-constructed one means none; times are signed 64-bit
/// numbers in the workers' own unit. Throughout, `mode` false asks for the result that covers `ts`
/// (the last one whose time is not after it), true for the first whose time is strictly after it.
///
/// Jobs of one pool run one after another: a request that comes while a job runs waits for its
/// end, and then often finds its answer remembered. A cancel flag ends the request's own job but
/// not the wait for another's: cancelling takes as long as that job still does.
///
/// A worker that has given up on its file remembers nothing, and workers that remember nothing go
/// before those that would have to leave their place: it keeps being asked, and answers empty.
///
/// Lock order: `m_lock`, then workers' `m_mutex`, several at a time and in an order that changes
/// with the request. That cannot deadlock: only who holds `m_lock` takes a second one, and who
/// holds one without `m_lock` takes no other.
///
/// Ownership: a worker is the pool's from add_worker() until remove_worker() deletes it. Workers
/// left at the end are not deleted.
/// Thread-safety: safe, except where a member says what must be held.
template <typename T>
class AbstractScheduler {
public:
    /// One worker: it remembers a few results around one place of the stream and can produce
    /// others, at a cost that depends on how far away they are.
    ///
    /// The scheduler calls every operation with `m_mutex` held. None may call the scheduler.
    /// do_job() must not throw; an exception out of another one leaves do_working() and leaves
    /// nothing locked.
    class iWorker : public SchedulerWorker {
    public:
        iWorker() = default;
        iWorker(const iWorker&) = delete;
        iWorker& operator=(const iWorker&) = delete;
        virtual ~iWorker() = default;

        /// Whether nothing is remembered.
        virtual bool is_empty() const = 0;

        /// The time of the oldest result remembered, -1 if there is none.
        virtual long long cached_first_ts() const = 0;

        /// Whether get_exist_resource() has the answer.
        virtual bool is_contain(long long ts, bool mode) = 0;

        /// Whether going on from where the worker stands reaches `ts` soon.
        virtual bool will_contain(long long ts) = 0;

        /// The answer out of memory; empty if it is not there.
        virtual T get_exist_resource(long long ts, bool mode) = 0;

        /// Produces the answer; empty if there is none or `cancel` (may be null) was set.
        /// With `locked` the caller has locked `m_mutex`, without it the job does. Either way the
        /// job holds it throughout and unlocks it last of all: a JobGuard does that.
        virtual T do_job(long long ts, bool locked, std::atomic<bool>* cancel, bool mode) = 0;
    };

    AbstractScheduler() = default;
    AbstractScheduler(const AbstractScheduler&) = delete;
    AbstractScheduler& operator=(const AbstractScheduler&) = delete;
    ~AbstractScheduler() = default;

    /// Appends `w` to the pool; null is ignored. Traced.
    void add_worker(iWorker* w);

    /// Takes `w` out of the pool and deletes it after its job and all waits for it have ended; null
    /// is ignored. Traced. Blocks for that long, and all requests with it.
    /// @param locked  the caller holds `m_lock`, and goes on holding it
    void remove_worker(iWorker* w, bool locked);

    /// Removes the idle worker that was used least recently, as is due when a decoder closes. That
    /// need not be the one that this decoder brought. If every worker is busy, all stay.
    /// Blocks like remove_worker().
    void drop_idle_worker();

    /// Fills `order` with the workers in the order in which they are to be asked:
    /// 1. those that remember the answer, the newest of the pool first;
    /// 2. those that will reach `ts` by going on: first those that last worked for `tag`, in pool
    ///    order, then by the begin of their memory, latest first, of equals the newest of the pool;
    /// 3. those that remember nothing, in pool order;
    /// 4. all others: first those that last worked for `tag`, in pool order, then the least
    ///    recently used first, of equals the newest of the pool.
    /// A single worker is copied as it is. A `tag` below 1 is nobody's.
    /// Call with `m_lock` held and no worker's mutex; locks one worker after another.
    void get_best_order(long long ts, std::list<iWorker*>& workers, std::list<iWorker*>& order,
                        bool mode, int tag);

    /// Serves one request: out of a worker's memory, else by a job, trying until a worker is free.
    /// @param cancel  ends the job early when set; may be null
    /// @param tag     the requester's number, from 1
    /// @param name    the requester's name, the tag of the line "worker-list empty"
    /// @return        empty if the pool has no worker (logged) or the job had no result
    /// Call with no lock of this pool held. Blocks while jobs of this pool run.
    T do_working(long long ts, std::atomic<bool>* cancel, bool mode, int tag, const char* name);

    std::shared_timed_mutex m_lock;  ///< always taken exclusively
    std::list<iWorker*> m_workers;   ///< guarded by m_lock: the pool, in order of addition, no null

private:
    // Not a constant of the file: the sources that include this header have their own.
    static constexpr char kLogSource[] = "src/scheduler";

    using PoolLock = std::unique_lock<std::shared_timed_mutex>;

    struct Request {
        const long long ts;
        const std::atomic<bool>* const cancel;
        const bool mode;
        const int tag;
        const char* const name;
        bool cancel_logged;  // one line is enough, however often the request has to wait
    };

    // A worker whose mutex this thread holds.
    struct Held {
        Held() = default;

        explicit Held(iWorker* w) : worker(w), lock(w->m_mutex) {}

        iWorker* worker = nullptr;
        std::unique_lock<std::mutex> lock;
    };

    // What one pass over the pool came to: an answer, or a worker to run, or neither.
    struct Outcome {
        bool is_answered = false;
        T answer{};
        Held chosen;

        bool is_chosen() const { return chosen.lock.owns_lock(); }
    };

    // The groups of get_best_order(), those of the requester's own workers apart.
    enum class Group { Remembers, OwnNear, Near, Empty, OwnOther, Other };

    struct Place {
        iWorker* worker;
        Group group;
        long long key;  // within the group, ascending
    };

    static Place classify(iWorker* worker, long long ts, bool mode, int tag);
    static void insert_in_order(std::vector<Place>& places, const Place& newcomer);

    Outcome scan_pool(Request& request);
    Outcome wait_or_choose_idle(Request& request, PoolLock& pool, std::vector<Held>& idle,
                                Held busy);
    static Outcome wait_for_busy(Request& request, Held busy);
    Outcome choose_idle_of(const Request& request, const std::vector<iWorker*>& candidates);
    static Outcome answer_from_memory(const Request& request, iWorker& worker);
    static Outcome choose(const Request& request, Held held);
    static void pause_before_pass(int repeats);
};

template <typename T>
void AbstractScheduler<T>::add_worker(iWorker* w) {
    FW_TRACE("add_worker", nullptr);
    if (w == nullptr) {
        return;
    }
    const PoolLock pool(m_lock);
    m_workers.push_back(w);
}

template <typename T>
void AbstractScheduler<T>::remove_worker(iWorker* w, bool locked) {
    FW_TRACE("remove_worker", nullptr);
    if (w == nullptr) {
        return;
    }
    PoolLock pool(m_lock, std::defer_lock);
    if (!locked) {
        pool.lock();
    }
    m_workers.remove(w);
    FW_TRACE("remove_worker", "del wk");
    w->wait_until_unused();
    delete w;
}

template <typename T>
void AbstractScheduler<T>::drop_idle_worker() {
    const PoolLock pool(m_lock);
    iWorker* choice = nullptr;
    std::time_t choice_used = 0;
    for (iWorker* const worker : m_workers) {
        if (worker->m_busy) {
            continue;
        }
        const std::time_t used = worker->m_last_used;
        // Deliberate: 0 stands for no choice yet as well as for never used, so a worker that was
        // never used gives way to the next idle one, whatever the time of that one.
        if (choice_used == 0 || used < choice_used) {
            choice = worker;
            choice_used = used;
        }
    }
    remove_worker(choice, true);
}

template <typename T>
void AbstractScheduler<T>::get_best_order(long long ts, std::list<iWorker*>& workers,
                                          std::list<iWorker*>& order, bool mode, int tag) {
    if (workers.size() <= 1) {
        order = workers;
        return;
    }
    std::vector<Place> places;
    places.reserve(workers.size());
    for (iWorker* const worker : workers) {
        insert_in_order(places, classify(worker, ts, mode, tag));
    }
    order.clear();
    for (const Place& place : places) {
        order.push_back(place.worker);
    }
}

// Reads all that the order depends on, once and under the worker's lock: values that change while
// places are compared would give no order at all.
template <typename T>
typename AbstractScheduler<T>::Place AbstractScheduler<T>::classify(iWorker* worker, long long ts,
                                                                    bool mode, int tag) {
    const Held held(worker);
    const bool own = tag > 0 && worker->m_tag == tag;
    if (worker->is_contain(ts, mode)) {
        return {worker, Group::Remembers, 0};
    }
    if (worker->will_contain(ts)) {
        if (own) {
            return {worker, Group::OwnNear, 0};
        }
        return {worker, Group::Near,
                ~worker->cached_first_ts()};  // latest first; ~ never overflows
    }
    if (worker->is_empty()) {
        return {worker, Group::Empty, 0};
    }
    if (own) {
        return {worker, Group::OwnOther, 0};
    }
    return {worker, Group::Other, static_cast<long long>(worker->m_last_used.load())};
}

template <typename T>
void AbstractScheduler<T>::insert_in_order(std::vector<Place>& places, const Place& newcomer) {
    const auto before = [](const Place& a, const Place& b) {
        return std::tie(a.group, a.key) < std::tie(b.group, b.key);
    };
    const bool first_of_equals = newcomer.group == Group::Remembers ||
                                 newcomer.group == Group::Near || newcomer.group == Group::Other;
    const auto at = first_of_equals
                        ? std::lower_bound(places.begin(), places.end(), newcomer, before)
                        : std::upper_bound(places.begin(), places.end(), newcomer, before);
    places.insert(at, newcomer);
}

template <typename T>
T AbstractScheduler<T>::do_working(long long ts, std::atomic<bool>* cancel, bool mode, int tag,
                                   const char* name) {
    Request request{ts, cancel, mode, tag, name, false};
    for (int repeats = 0;; pause_before_pass(++repeats)) {
        Outcome outcome = scan_pool(request);
        if (outcome.is_answered) {
            return std::move(outcome.answer);
        }
        if (outcome.is_chosen()) {
            outcome.chosen.lock.release();  // the job unlocks it
            return outcome.chosen.worker->do_job(ts, true, cancel, mode);
        }
    }
}

// One pass: asks the workers one after another, each under its own lock and all under m_lock, so
// that no two passes go over the pool at the same time.
template <typename T>
typename AbstractScheduler<T>::Outcome AbstractScheduler<T>::scan_pool(Request& request) {
    PoolLock pool(m_lock);
    if (m_workers.empty()) {
        pool.unlock();  // the host's log callback must not run under it
        FW_LOG(5, request.name, "worker-list empty");
        return {true, T{}, {}};
    }
    std::list<iWorker*> sorted;
    if (m_workers.size() > 1) {  // the usual single worker costs no allocation
        get_best_order(request.ts, m_workers, sorted, request.mode, request.tag);
    }
    std::vector<Held> idle;  // free, but with nothing useful in memory; in order
    for (iWorker* const worker : sorted.empty() ? m_workers : sorted) {
        const auto is_same = [worker](const Held& other) { return other.worker == worker; };
        if (std::any_of(idle.begin(), idle.end(), is_same)) {
            continue;  // was added twice
        }
        Held held(worker);
        if (worker->is_contain(request.ts, request.mode)) {
            idle.clear();
            pool.unlock();
            return answer_from_memory(request, *worker);
        }
        const bool is_near = worker->will_contain(request.ts);
        if (is_near && worker->m_busy) {
            return wait_or_choose_idle(request, pool, idle, std::move(held));
        }
        if (is_near) {
            return choose(request, std::move(held));
        }
        if (!worker->m_busy) {
            idle.push_back(std::move(held));
        }
    }
    return idle.empty() ? Outcome{} : choose(request, std::move(idle.front()));
}

// Waits for a worker that is about to reach the time, rather than starting another one. The idle
// ones are let go meanwhile: a pass of another request may stand at `busy` when its job ends, and
// want one of them next.
template <typename T>
typename AbstractScheduler<T>::Outcome AbstractScheduler<T>::wait_or_choose_idle(
    Request& request, PoolLock& pool, std::vector<Held>& idle, Held busy) {
    std::vector<iWorker*> candidates;
    candidates.reserve(idle.size());
    for (const Held& other : idle) {
        candidates.push_back(other.worker);
    }
    idle.clear();
    pool.unlock();
    Outcome outcome = wait_for_busy(request, std::move(busy));
    if (outcome.is_answered || outcome.is_chosen() || candidates.empty()) {
        return outcome;
    }
    return choose_idle_of(request, candidates);
}

// Comes to nothing if the request is cancelled, which shows at the next end of the worker's job,
// or if the worker is removed.
template <typename T>
typename AbstractScheduler<T>::Outcome AbstractScheduler<T>::wait_for_busy(Request& request,
                                                                           Held busy) {
    iWorker& worker = *busy.worker;
    const SchedulerWorker::WaiterCount count(worker);
    for (;;) {
        worker.m_cond.wait(busy.lock);
        if (worker.m_removed) {
            return {};
        }
        if (request.cancel != nullptr && *request.cancel) {
            if (!std::exchange(request.cancel_logged, true)) {
                FW_LOG(5, "bg", "worker cancelled: %p, %s", static_cast<const void*>(&worker),
                       worker.m_name);
            }
            return {};
        }
        if (worker.is_contain(request.ts, request.mode)) {
            return answer_from_memory(request, worker);
        }
        if (!worker.m_busy) {
            return choose(request, std::move(busy));
        }
    }
}

// Chooses the first of `candidates` that is still in the pool and still idle.
template <typename T>
typename AbstractScheduler<T>::Outcome AbstractScheduler<T>::choose_idle_of(
    const Request& request, const std::vector<iWorker*>& candidates) {
    const PoolLock pool(m_lock);
    for (iWorker* const worker : candidates) {
        if (std::find(m_workers.begin(), m_workers.end(), worker) == m_workers.end()) {
            continue;
        }
        Held held(worker);
        if (!worker->m_busy) {
            return choose(request, std::move(held));
        }
    }
    return {};
}

template <typename T>
typename AbstractScheduler<T>::Outcome AbstractScheduler<T>::answer_from_memory(
    const Request& request, iWorker& worker) {
    return {true, worker.get_exist_resource(request.ts, request.mode), {}};
}

// A pass marks its worker before it lets go of m_lock: who looks for a worker to drop must not
// pick this one and then wait for its job.
template <typename T>
typename AbstractScheduler<T>::Outcome AbstractScheduler<T>::choose(const Request& request,
                                                                    Held held) {
    held.worker->m_busy = true;
    held.worker->m_tag = request.tag;
    held.worker->m_last_used = std::time(nullptr);
    return {false, T{}, std::move(held)};
}

// Gives way to the jobs that have to end first, for 1 ms at most.
template <typename T>
void AbstractScheduler<T>::pause_before_pass(int repeats) {
    if (repeats == 1) {
        std::this_thread::yield();
        return;
    }
    const int doublings = std::min(repeats - 2, 5);
    std::this_thread::sleep_for(std::chrono::microseconds(std::min(50 << doublings, 1000)));
}

}  // namespace ff
