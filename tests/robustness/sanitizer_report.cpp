#include "tests/robustness/sanitizer_report.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace fw_test {

namespace {

constexpr int kFunctions = 5;

bool has(const std::string& line, const char* part) {
    return line.find(part) != std::string::npos;
}

/// "    #3 0x55d in name(args) place" -> "name", or "name [libx.so.1]" where only the library is
/// known. Empty for lines that are no part of a stack.
std::string function_of(const std::string& line) {
    std::istringstream words(line);
    std::string number;
    std::string address;
    std::string in;
    std::string name;
    if (!(words >> number >> address >> in >> name) || number[0] != '#' || in != "in") {
        return "";
    }
    name.resize(std::min(name.size(), name.find('(')));
    const std::size_t library = line.rfind('/');
    const std::size_t so = line.find(".so", library != std::string::npos ? library : 0);
    if (library == std::string::npos || so == std::string::npos) {
        return name;
    }
    const std::size_t end = line.find_first_of("+)", so);
    return name + " [" + line.substr(library + 1, end - library - 1) + "]";
}

bool is_headline(const std::string& line) {
    return has(line, "ERROR: AddressSanitizer") || has(line, "ERROR: LeakSanitizer") ||
           has(line, "runtime error: ") || has(line, "ERROR: ThreadSanitizer") ||
           has(line, "terminate called") || has(line, "AddressSanitizer: DEADLYSIGNAL");
}

}  // namespace

std::string headline_of_report(const std::string& text) {
    std::istringstream lines(text);
    std::string headline;
    int functions = 0;
    for (std::string line; std::getline(lines, line) && functions < kFunctions;) {
        if (headline.empty() || has(headline, "DEADLYSIGNAL")) {
            if (is_headline(line)) {
                headline = line;
            }
            continue;
        }
        const std::string function = function_of(line);
        if (!function.empty() && !has(function, "[libasan") && !has(function, "__interceptor") &&
            !has(function, "__asan")) {
            headline += (functions++ == 0 ? ": " : " < ") + function;
        }
    }
    return headline;
}

}  // namespace fw_test
