#include "media/resampler.h"

extern "C" {
#include <libavutil/log.h>
}

#include <utility>

namespace ff {

namespace {

// From 2.8 MHz, the most that sound comes with, to a telephone's 8 kHz it is 353. What a damaged
// header says would take gigabytes and a minute.
constexpr int kMostToOne = 2048;

}  // namespace

SwrPtr open_resampler(SwrPtr old, const compat::AudioShape& out, const compat::AudioShape& in) {
    if (in.sample_rate / kMostToOne > out.sample_rate) {
        av_log(nullptr, AV_LOG_ERROR, "no resampling from %d to %d samples per second\n",
               in.sample_rate, out.sample_rate);
        return nullptr;
    }
    SwrPtr swr(compat::make_resampler(old.release(), out, in));
    return swr && swr_init(swr.get()) >= 0 ? std::move(swr) : nullptr;
}

}  // namespace ff
