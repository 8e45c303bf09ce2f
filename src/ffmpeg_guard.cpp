#include "ffmpeg_guard.h"

#include "base/log.h"
#include "media/ffmpeg_report.h"

#include <string>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffmpeg_guard";

}  // namespace

bool is_ffmpeg_usable() {
    const std::string refusal = ffmpeg_refusal();
    if (!refusal.empty()) {
        FW_LOG(2, "bg", "FFmpeg is refused: %s", refusal.c_str());
    }
    return refusal.empty();
}

}  // namespace ff
