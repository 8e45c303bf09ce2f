#include "process_memory.h"

#include <unistd.h>

#include <fstream>

namespace tool {

std::optional<std::int64_t> resident_bytes() {
    std::ifstream file("/proc/self/statm");
    std::int64_t total_pages = 0;
    std::int64_t resident_pages = 0;
    if (!(file >> total_pages >> resident_pages)) {
        return std::nullopt;
    }
    return resident_pages * sysconf(_SC_PAGESIZE);
}

}  // namespace tool
