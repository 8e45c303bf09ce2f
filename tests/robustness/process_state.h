#pragma once

namespace fw_test {

/// What a process holds of its machine.
struct ProcessState {
    double resident_mb = 0;
    double allocated_mb = 0;  ///< by malloc, and not freed; 0 where the C library does not tell
    int threads = 0;
    int files = 0;  ///< open descriptors
};

/// Returns what this process holds now.
ProcessState process_state();

/// Gives what is free in the allocator back to the system, so that resident memory tells what is in
/// use and not what was once.
void trim_memory();

}  // namespace fw_test
