#include "effects.h"

#include "report.h"
#include "tool_log.h"

#include <limits>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

}  // namespace

void apply_effects(const Effects& effects, const std::string& name, ff::FFDecoder2& decoder) {
    const HushedStandardError hush;  // the library tells there which filters it opens
    (void)take_complaints();
    bool accepted = true;
    if (effects.speed != 1.0) {
        accepted = decoder.setSpeed(effects.speed);
    }
    if (!effects.filter.empty()) {
        accepted = decoder.setFilters(effects.filter.c_str());
    }
    if (!accepted) {
        const Complaints complaints = take_complaints();
        const std::string& reason =
            complaints.ffmpeg.empty() ? complaints.framewell : complaints.ffmpeg;
        const std::string what = effects.filter.empty() ? "speed " + std::to_string(effects.speed)
                                                        : "--filter " + effects.filter;
        throw Failure(name + ": " + what + " cannot be set up" +
                      (reason.empty() ? "" : " (" + reason + ")") +
                      "; see `ffmpeg -filters` for what there is");
    }
    if (effects.reverse) {
        if (decoder.streamContex()->duration == kUnknown) {
            throw Failure(name +
                          ": nobody knows how long it is, so it cannot be played backwards; copy "
                          "it into another container first");
        }
        decoder.setRevert(true);
    }
}

}  // namespace tool
