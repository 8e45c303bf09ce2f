#pragma once

#include <string>

namespace fw_test {

/// Returns what a report of a sanitizer is about, in one line: its headline and the first functions
/// of the first stack that are not the sanitizer's own, those of a shared library with its name.
/// Empty if `text` holds no report.
std::string headline_of_report(const std::string& text);

}  // namespace fw_test
