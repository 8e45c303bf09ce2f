#pragma once

/// @file
/// The ground under every other header: the version of the library and its export macro.

/// The version of the headers, as three numbers; CHANGELOG.md says what each of them promises.
#define FRAMEWELL_VERSION_MAJOR 1
/// See FRAMEWELL_VERSION_MAJOR.
#define FRAMEWELL_VERSION_MINOR 0
/// See FRAMEWELL_VERSION_MAJOR.
#define FRAMEWELL_VERSION_PATCH 0

/// Makes one number of a version, for preprocessor conditions:
/// `#if FRAMEWELL_VERSION >= FRAMEWELL_VERSION_NUMBER(1, 2, 0)`.
#define FRAMEWELL_VERSION_NUMBER(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))
/// The version of the headers as one number; see FRAMEWELL_VERSION_NUMBER().
#define FRAMEWELL_VERSION                                                      \
    FRAMEWELL_VERSION_NUMBER(FRAMEWELL_VERSION_MAJOR, FRAMEWELL_VERSION_MINOR, \
                             FRAMEWELL_VERSION_PATCH)

/// Marks what a host may link against; everything else stays hidden inside the library.
#if defined(__GNUC__) || defined(__clang__)
#define FRAMEWELL_API __attribute__((visibility("default")))
#else
#define FRAMEWELL_API
#endif

namespace ff {

/// Returns the version of the library that is loaded, for example "1.0.0".
/// Compare it with the FRAMEWELL_VERSION_... macros to see whether the headers that a host was
/// compiled with belong to the library that it runs with.
/// Thread-safety: safe. The text is static.
FRAMEWELL_API const char* framewell_version();

/// Returns the FFmpeg libraries that framewell was compiled against and those that it runs with,
/// as one line of text: "libavcodec 59.37.100 (running 59.37.100), ...".
/// Where the major version of one of them differs, FFmpeg's structures differ, and framewell
/// refuses to touch them: probing, opening, filters, the scaling and picture layout of ff_tools.h,
/// hardware decoding and create_avframe_with() give their failure values. Each such call logs
/// (level 2): "FFmpeg is refused: libavcodec 61.19.101 is loaded, but framewell was built with
/// 59.37.100: another major version cannot be used".
/// Thread-safety: safe. The text is static.
FRAMEWELL_API const char* framewell_ffmpeg_report();

}  // namespace ff
