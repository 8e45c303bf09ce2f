#pragma once

#include <framewell/base/config.h>
#include <framewell/base/logger.h>

#include <string>

/// @file
/// Byte strings: trimming, formatting, comparing, folding, replacing.
///
/// All strings end with a NUL. A blank is a space, a tab, a line feed or a carriage return.
/// Functions that return a `char*` work in the caller's buffer: they return a pointer into it and
/// allocate nothing. Null in place of a string gives null, false or the empty string; running out
/// of memory gives the empty string. Nothing is logged.
///
///     char line[] = "  \"clip one.mp4\" \r\n";
///     const char* const name = ut::trim_begin2(ut::trim_end2(ut::trim(line), "\""), "\"");
///     if (ut::end_width(name, ".MP4", false)) { /* name is: clip one.mp4 */ }
///
/// Thread-safety: safe on different buffers, rand_str() excepted.
namespace ut {

/// Returns a pointer past the blanks that `s` begins with.
FRAMEWELL_API char* trim_begin(char* s);

/// trim_begin() of a text that cannot be written to.
FRAMEWELL_API const char* trim_begin(const char* s);

/// Cuts the blanks off the end of `s` and returns `s`. The first character stays whatever it is, so
/// a text of blanks only keeps one; trim() removes that too.
FRAMEWELL_API char* trim_end(char* s);

/// Cuts the blanks off the end of `s` and returns a pointer past those at its beginning.
FRAMEWELL_API char* trim(char* s);

/// Returns a pointer past the characters at the beginning of `s` that occur in `set`: `s` itself if
/// either is empty or null.
FRAMEWELL_API char* trim_begin2(char* s, const char* set);

/// Cuts the characters that occur in `set` off the end of `s`, but never the first character, and
/// returns `s`. Does nothing if either is empty or null.
FRAMEWELL_API char* trim_end2(char* s, const char* set);

/// Returns what printf() would print. Empty if the text cannot be formatted.
FRAMEWELL_API std::string str_format(const char* fmt, ...) FRAMEWELL_PRINTF(1, 2);

/// Returns whether `s` begins with `prefix`. Without `case_sensitive`, letters count as equal in
/// both cases as the process locale knows them (ASCII by default). An empty prefix always fits.
FRAMEWELL_API bool begin_width(const char* s, const char* prefix, bool case_sensitive);

/// Returns whether `s` ends with `suffix`, compared as by begin_width().
FRAMEWELL_API bool end_width(const char* s, const char* suffix, bool case_sensitive);

/// Turns the letters of `s` into lower case, byte by byte by the process locale; returns `s`.
FRAMEWELL_API char* str_to_lower(char* s);

/// Turns the letters of `s` into upper case, byte by byte by the process locale; returns `s`.
FRAMEWELL_API char* str_to_upper(char* s);

/// Returns `n` random digits and letters, nothing for n <= 0. Two calls differ also within one
/// second. Good for the names of temporary files, not for secrets.
/// Seeds the process's generator (srand()) with the time. Thread-safety: one thread at a time, and
/// none may use rand() meanwhile.
FRAMEWELL_API std::string rand_str(int n);

/// Returns `s` with every occurrence of `from` replaced by `to`, those included that a replacement
/// brings about: the first one is replaced again and again until none is left, so "ab" -> "" turns
/// "aabb" into "". Where that would never end, because `to` has `from` in it or the text outgrows
/// 4 MiB more than replacing once can explain, the result is that of str_replace_all_distinct().
/// An empty `from` replaces nothing.
FRAMEWELL_API std::string str_replace_all(const char* s, const char* from, const char* to);

/// Returns `s` with every occurrence of `from` replaced by `to`, left to right; what was put in is
/// not searched again. An empty `from` replaces nothing.
FRAMEWELL_API std::string str_replace_all_distinct(const char* s, const char* from, const char* to);

}  // namespace ut
