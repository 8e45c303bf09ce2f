#pragma once

/// @file
/// A system that has no memory or no threads to give. The test program defines posix_memalign() and
/// pthread_create() itself (in faults_test.cpp); its definitions come before those of the system,
/// and call them unless a test refuses.

#include <atomic>

namespace fw_test {

// ThreadSanitizer must be the one that defines these functions.
#if defined(__SANITIZE_THREAD__)
#define FW_TEST_CAN_REFUSE 0
#elif defined(__clang__) && defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define FW_TEST_CAN_REFUSE 0
#endif
#endif
#ifndef FW_TEST_CAN_REFUSE
#define FW_TEST_CAN_REFUSE 1
#endif

constexpr bool kCanRefuse = FW_TEST_CAN_REFUSE != 0;
constexpr const char* kCannotRefuse = "this sanitizer needs the system's functions for itself";

struct SystemFaults {
    std::atomic<bool> refuse_memory{false};   ///< aligned blocks, to the library and to tests only
    std::atomic<bool> refuse_threads{false};  ///< to everybody, FFmpeg included
    std::atomic<int> refused{0};
};

extern SystemFaults g_system_faults;

/// Refuses, from its construction to its destruction.
class Refusal {
public:
    explicit Refusal(std::atomic<bool> SystemFaults::*what) : m_switch(g_system_faults.*what) {
        g_system_faults.refused = 0;
        m_switch = true;
    }

    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;

    ~Refusal() { m_switch = false; }

    /// How often something was refused.
    int count() const { return g_system_faults.refused; }

private:
    std::atomic<bool>& m_switch;
};

}  // namespace fw_test
