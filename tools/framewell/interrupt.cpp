#include "interrupt.h"

#include <csignal>

namespace tool {

namespace {

std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

extern "C" void note_interrupt(int /*signal*/) {
    g_interrupted.store(true);
    // The user who presses it again does not want to wait for an orderly end.
    (void)std::signal(SIGINT, SIG_DFL);
}

}  // namespace

void watch_interrupts() {
    (void)std::signal(SIGINT, note_interrupt);  // cannot fail for a valid signal
}

std::atomic<bool>& interrupt_flag() {
    return g_interrupted;
}

}  // namespace tool
