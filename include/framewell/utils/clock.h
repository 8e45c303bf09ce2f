#pragma once

#include <framewell/base/config.h>

/// @file
/// A clock that looks like the time of day and never jumps.

/// Time since the Unix epoch as it was when the process first asked, carried on by the machine's
/// raw monotonic clock: setting the wall clock moves none of these.
/// Thread-safety: all safe. None fails, none blocks.
namespace bg::time {

/// Stores the time as whole seconds and the nanoseconds beyond them; either pointer may be null.
/// Returns the nanoseconds if `nsec` is given, else the seconds if `sec` is given, else 0.
FRAMEWELL_API long long cpu_pts(long long* sec, long long* nsec);

/// Returns the time in nanoseconds.
FRAMEWELL_API long long cpu_nano_pts();

/// Returns the time in microseconds, cut.
FRAMEWELL_API long long cpu_usec_pts();

/// Returns the time in milliseconds, cut.
FRAMEWELL_API long long cpu_msec_pts();

}  // namespace bg::time
