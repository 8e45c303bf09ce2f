#pragma once

#include <framewell/base/logger.h>

/// Logs one line at the place of the call: FW_LOG(2, "bg", "failed to open: %s", path).
///
/// The source file defines `kLogSource`, its module's path without extension (for example
/// "src/ffdec_task"), so that a line names the module and neither the build folder nor the way in
/// which a module is split over files. The format must be a literal: it is turned into a literal
/// again, which is what puts the quote characters around every logged message (and shows an escape
/// such as \n as the two characters that were typed), and it ends with a newline. The arguments
/// (15 at most) are evaluated only when the logger wants the line.
#define FW_LOG(level, tag, ...) FW_LOG_AT(__LINE__, level, tag, __VA_ARGS__)

/// FW_LOG with a line number of its own, for the few lines whose number is part of what is logged.
#define FW_LOG_AT(line, level, tag, ...)                                               \
    do {                                                                               \
        ::mox::Logger* const fw_logger = ::mox::Logger::instance();                    \
        if (fw_logger->wants(level)) {                                                 \
            fw_logger->write(tag, level, kLogSource, line, FW_LOG_QUOTE(__VA_ARGS__)); \
        }                                                                              \
    } while (false)

// Quotes the first argument and leaves the others as they are. Two forms, picked by counting,
// because C++17 has no portable way to drop the comma before an empty argument list.
#define FW_LOG_QUOTE(...)                                                                     \
    FW_LOG_PICK(__VA_ARGS__, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, \
                FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, \
                FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_MANY, FW_LOG_ONE, 0)            \
    (__VA_ARGS__)
#define FW_LOG_PICK(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16, name, \
                    ...)                                                                         \
    name
#define FW_LOG_ONE(format) #format "\n"
#define FW_LOG_MANY(format, ...) #format "\n", __VA_ARGS__
