#pragma once

#include <atomic>

namespace tool {

/// Makes the first Ctrl-C (SIGINT) set interrupt_flag() instead of ending the process; the second
/// one ends it. To be called before anything is decoded that looks at the flag.
void watch_interrupts();

/// Whether the user has interrupted the command. It serves as the abort flag of requests.
std::atomic<bool>& interrupt_flag();

inline bool is_interrupted() {
    return interrupt_flag().load();
}

}  // namespace tool
