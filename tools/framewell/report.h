#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tool {

/// JSON whose keys stay in the order in which they were set.
using Json = nlohmann::ordered_json;

/// The exit statuses that scripts rely on.
enum class Exit : int {
    Done = 0,
    Failed = 1,         ///< some request had no answer, or a file could not be used
    Usage = 2,          ///< the command line is wrong
    Differs = 4,        ///< verify found an answer that is not what it must be
    Interrupted = 130,  ///< the user pressed Ctrl-C
};

/// A command that cannot go on: main() prints the text as one error line. It says what to do.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, Exit status = Exit::Failed)
        : std::runtime_error(text), m_status(status) {}

    Exit status() const { return m_status; }

private:
    Exit m_status;
};

/// Prints "framewell: TEXT" as one line on standard error, whatever bytes the text has.
void print_error(std::string_view text);

/// The text with every control character replaced, so that it stays on one line and cannot
/// command a terminal.
std::string printable(std::string_view text);

/// Writes `bytes` to standard output at once. Throws Failure if they cannot be written.
void write_out(std::string_view bytes);

/// Writes `line` as it is and a newline to standard output.
void print_line(const std::string& line);

/// Writes the object on one line. Bytes that are not UTF-8 show as U+FFFD.
void print_json(const Json& object);

/// The text of the system's error `code` ("No space left on device").
std::string system_error_text(int code);

/// Microseconds as "12.480000 s"; `digits` after the point, at most 6, the rest cut off.
std::string seconds_text(std::int64_t microseconds, int digits);

}  // namespace tool
