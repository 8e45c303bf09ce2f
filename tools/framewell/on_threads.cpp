#include "on_threads.h"

#include <exception>
#include <mutex>
#include <thread>
#include <vector>

void run_on_threads(unsigned int count, const std::function<void(unsigned int number)>& work) {
    std::mutex trouble_mutex;
    std::exception_ptr trouble;  // guarded by trouble_mutex
    std::vector<std::thread> threads;
    for (unsigned int number = 0; number < count; ++number) {
        threads.emplace_back([&, number] {
            try {
                work(number);
            } catch (...) {
                const std::lock_guard<std::mutex> lock(trouble_mutex);
                trouble = std::current_exception();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (trouble) {
        std::rethrow_exception(trouble);
    }
}
