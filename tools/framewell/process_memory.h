#pragma once

#include <cstdint>
#include <optional>

namespace tool {

/// The memory of this process that lies in RAM at the moment, bytes; none where the system does not
/// tell.
std::optional<std::int64_t> resident_bytes();

}  // namespace tool
