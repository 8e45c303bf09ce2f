#include "on_threads.h"

#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

void run_on_threads(unsigned int count, const std::function<void(unsigned int number)>& work) {
    std::mutex trouble_mutex;
    std::exception_ptr trouble;  // guarded by trouble_mutex
    std::vector<std::thread> threads;
    threads.reserve(count);
    const auto run = [&](unsigned int number) {
        try {
            work(number);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(trouble_mutex);
            trouble = std::current_exception();
        }
    };
    for (unsigned int number = 0; number < count; ++number) {
        try {
            threads.emplace_back(run, number);
        } catch (const std::system_error&) {
            run(number);  // there can be no more threads: this one does the work of the missing one
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (trouble) {
        std::rethrow_exception(trouble);
    }
}
