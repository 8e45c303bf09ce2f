#include <framewell/utils/clock.h>

#include <ctime>

namespace bg::time {

namespace {

struct Instant {
    long long sec;
    long long nsec;
};

Instant read_clock() {
    timespec raw{};
    (void)clock_gettime(CLOCK_MONOTONIC_RAW, &raw);  // cannot fail with a clock that Linux has
    // Whole seconds, taken once by the thread that comes first; the others wait for it.
    static const long long offset_sec = static_cast<long long>(::time(nullptr)) - raw.tv_sec;
    return {raw.tv_sec + offset_sec, raw.tv_nsec};
}

}  // namespace

long long cpu_pts(long long* sec, long long* nsec) {
    const Instant now = read_clock();
    if (sec != nullptr) {
        *sec = now.sec;
    }
    if (nsec != nullptr) {
        *nsec = now.nsec;
        return now.nsec;
    }
    return sec != nullptr ? now.sec : 0;
}

long long cpu_nano_pts() {
    const Instant now = read_clock();
    return now.sec * 1000000000 + now.nsec;
}

long long cpu_usec_pts() {
    const Instant now = read_clock();
    return now.sec * 1000000 + now.nsec / 1000;
}

long long cpu_msec_pts() {
    const Instant now = read_clock();
    return now.sec * 1000 + now.nsec / 1000000;
}

}  // namespace bg::time
