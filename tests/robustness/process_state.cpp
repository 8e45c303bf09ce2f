#include "tests/robustness/process_state.h"

#include "tests/support/heap_use.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fw_test {

namespace {

int entries_in(const char* folder) {
    std::error_code ignored;  // an entry may go while they are counted
    std::filesystem::directory_iterator entry(folder, ignored);
    int count = 0;
    for (; entry != std::filesystem::directory_iterator(); entry.increment(ignored)) {
        ++count;
    }
    return count;
}

}  // namespace

ProcessState process_state() {
    std::ifstream statm("/proc/self/statm");
    double all = 0;
    double resident = 0;
    statm >> all >> resident;
    statm.close();
    return {resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6, bytes_in_use() / 1e6,
            entries_in("/proc/self/task"), entries_in("/proc/self/fd")};
}

void trim_memory() {
#ifdef __GLIBC__
    (void)::malloc_trim(0);  // whether there was anything to give is of no interest
#endif
}

}  // namespace fw_test
