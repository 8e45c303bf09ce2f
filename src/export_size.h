#pragma once

#include <atomic>

namespace ff {

// The size at which the host exports its movie, in pixels, and the product of the two: what
// MemoryMode::ByExportSize measures pictures by. 0 until the host has set it. The three are atomic
// one by one, not together: only the product is used for decisions.
inline std::atomic<int> g_export_width{0};
inline std::atomic<int> g_export_height{0};
inline std::atomic<int> g_w_h_multi{0};

}  // namespace ff
