#include "async_helper.h"

#include "base/log.h"

#include <exception>
#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/async_helper";

}  // namespace

// What is discarded may belong to the host, and its destructor may ask for a frame again, so it
// must not run inside the queue.
AsyncHelper::AsyncHelper()
    : m_queue([this](Task& task) { m_discarded.push_back(std::move(task)); }) {}

AsyncHelper::~AsyncHelper() {
    if (m_thread.joinable()) {
        m_thread.detach();  // it has ended, or is ending, or this is it
    }
}

std::shared_ptr<AsyncHelper> AsyncHelper::start() {
    std::shared_ptr<AsyncHelper> helper(new AsyncHelper);  // the constructor is private
    // The thread may let go of the helper before the assignment is done: nobody else looks at the
    // member until this returns, and the reference here keeps the helper.
    helper->m_thread = std::thread([helper] { helper->run(); });
    return helper;
}

void AsyncHelper::run() {
    while (!m_stop) {
        Task task;
        if (m_queue._get_front_(task, true, 0, true) == 0) {
            run_task(task);
        }
    }
}

void AsyncHelper::run_task(const Task& task) const {
    try {
        task();
    } catch (const std::exception& error) {
        FW_LOG(2, "bg", "a callback has thrown: %s", error.what());
    } catch (...) {
        FW_LOG(2, "bg", "a callback has thrown");
    }
}

void AsyncHelper::submit(const Task& task) {
    if (!task) {
        return;
    }
    std::vector<Task> discarded;  // destroyed after the lock is released
    const std::lock_guard<std::mutex> lock(m_submit_mutex);
    m_queue.clear();
    (void)m_queue.push(task);  // refused after stop(), when nothing is to run any more
    discarded.swap(m_discarded);
}

void AsyncHelper::stop() {
    m_stop = true;  // first, or the thread would spin on the aborted queue
    m_queue.abort();
}

void AsyncHelper::join() {
    if (is_own_thread()) {
        m_thread.detach();
    } else if (m_thread.joinable()) {
        m_thread.join();
    }
}

bool AsyncHelper::is_own_thread() const {
    return m_thread.get_id() == std::this_thread::get_id();
}

}  // namespace ff
