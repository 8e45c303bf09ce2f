#pragma once

/// @file
/// The address sanitizer as programs with children that end by _exit() want it. To be included by
/// one source of a program.

#if defined(__SANITIZE_ADDRESS__)
#define FW_HAS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FW_HAS_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef FW_HAS_ADDRESS_SANITIZER

#include <sanitizer/lsan_interface.h>

extern "C" {

// Read by the sanitizer when the program starts; the environment variable ASAN_OPTIONS goes before
// it. A size that no machine has gives null, as it does without a sanitizer; a child that is ended
// shows where it was; memory that is waiting to be seen used after its end is no measure of what
// the library needs.
const char* __asan_default_options();  // NOLINT(bugprone-reserved-identifier): given

const char* __asan_default_options() {  // NOLINT(bugprone-reserved-identifier): given
    return "allocator_may_return_null=1:detect_leaks=1:handle_abort=1:quarantine_size_mb=32";
}

const char* __ubsan_default_options();  // NOLINT(bugprone-reserved-identifier): given

const char* __ubsan_default_options() {  // NOLINT(bugprone-reserved-identifier): given
    return "print_stacktrace=1";
}

}  // extern "C"

namespace fw_test {

/// Whether something has leaked, which the sanitizer then lists on standard error.
inline bool has_leaks() {
    return __lsan_do_recoverable_leak_check() != 0;
}

}  // namespace fw_test

#else

namespace fw_test {

inline bool has_leaks() {
    return false;  // nobody counts
}

}  // namespace fw_test

#endif
