#pragma once

#include "outline.h"

#include <string>

namespace tool {

/// The manual page framewell(1) in the man(7) language.
/// @param date  of the release, "YYYY-MM-DD"
std::string man_page(const Outline& outline, const std::string& version, const std::string& date);

}  // namespace tool
