#include "report.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace tool {

void print_error(std::string_view text) {
    const std::string line = "framewell: " + printable(text) + "\n";
    (void)std::fputs(line.c_str(), stderr);  // there is no other place to report to
}

std::string printable(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            c = '?';
        }
    }
    return result;
}

void write_out(std::string_view bytes) {
    errno = 0;
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() &&
        std::fflush(stdout) == 0) {
        return;
    }
    const int code = errno;
    std::clearerr(stdout);
    throw Failure("cannot write to standard output: " + system_error_text(code));
}

void print_line(const std::string& line) {
    write_out(line + "\n");
}

void print_json(const Json& object) {
    print_line(object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string system_error_text(int code) {
    return code == 0 ? "unknown error" : std::generic_category().message(code);
}

std::string seconds_text(std::int64_t microseconds, int digits) {
    // Through unsigned, since the smallest number has no positive counterpart.
    const bool negative = microseconds < 0;
    const auto bits = static_cast<std::uint64_t>(microseconds);
    const std::uint64_t magnitude = negative ? 0 - bits : bits;
    char fraction[16];
    (void)std::snprintf(fraction, sizeof fraction, "%06u",
                        static_cast<unsigned int>(magnitude % 1000000));
    return (negative ? "-" : "") + std::to_string(magnitude / 1000000) + "." +
           std::string(fraction, static_cast<std::size_t>(digits)) + " s";
}

}  // namespace tool
