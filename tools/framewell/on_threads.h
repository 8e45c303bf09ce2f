#pragma once

#include <functional>

/// Runs `work` with the numbers from 0 to `count` - 1, each on a thread of its own, and waits for
/// all of them. What one of them throws is thrown again here, after the last has ended.
void run_on_threads(unsigned int count, const std::function<void(unsigned int number)>& work);
