// What every fuzzer does once, before its first input.

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <framewell/base/logger.h>

#include <cstddef>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
// NOLINTNEXTLINE(clang-diagnostic-reserved-identifier): the name that the sanitizer looks for
extern "C" const char* __asan_default_options();

// A damaged header announces pictures of gigabytes, a script asks for hours of sound in one block.
// Those fail as they do on a small machine: for our own blocks, and below for those of FFmpeg.
// NOLINTNEXTLINE(clang-diagnostic-reserved-identifier): as above
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    constexpr std::size_t largest_block = std::size_t{64} << 20;
    av_max_alloc(largest_block);

    // Lines are made as always, so that what makes them is tried as well, but nobody reads them.
    av_log_set_level(AV_LOG_QUIET);
    mox::Logger::instance()->setStream(std::fopen("/dev/null", "w"));
    mox::Logger::instance()->setLevel(mox::MoxLogVerbose);
    return 0;
}
