// Playing backwards: what it costs, and how often each picture is decoded for it.

#include "clips.h"
#include "comparison.h"
#include "plain_loop.h"

#include <framewell/base/data.h>
#include <framewell/ffdecoder2.h>
#include <framewell/movie_info.h>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/pixfmt.h>
}

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kGroup = 250;  // pictures from one key frame to the next
constexpr std::size_t kPictures = 300;
constexpr std::size_t kLast = 899;  // in the middle of a group, where going backwards begins

// What lies between the key frames that are needed, up to the picture that is shown first.
constexpr std::size_t kNeeded = kLast + 1 - (kLast + 1 - kPictures) / kGroup * kGroup;
constexpr std::size_t kGroups = (kNeeded + kGroup - 1) / kGroup;

const ff::StreamCtx* long_gop_stream() {
    const std::string path = bench::path_of(bench::long_gop_clip());
    return ff::first_stream(ff::FFDecoder::probe(path.c_str()), ff::StreamType::Video);
}

void keep_pictures(std::size_t count) {
    mox::Data::instance()->set("dec.max_vf", mox::Value::integer(static_cast<std::int64_t>(count)));
}

/// The times of the pictures from first to last, in ticks: the clip begins at 0 and has no gaps.
std::vector<std::int64_t> times_forwards(const ff::StreamCtx& stream) {
    std::vector<std::int64_t> times;
    for (std::size_t i = kLast + 1 - kPictures; i <= kLast; ++i) {
        times.push_back(ff::time_to_timestamp(
            {static_cast<std::int64_t>(i), bench::kPicturesPerSecond}, stream.time_base));
    }
    return times;
}

/// Asks for the pictures as a player does that was told to go backwards. False if one is missing or
/// wrong.
bool play_backwards(ff::FFDecoder2* decoder, const ff::StreamCtx& stream) {
    decoder->setRevert(true);
    std::vector<std::int64_t> times = times_forwards(stream);
    std::reverse(times.begin(), times.end());
    return std::all_of(times.begin(), times.end(), [&](std::int64_t time) {
        ff::RequireVideoFrame request;
        request.time = ff::timestamp_to_time(stream.duration - time, stream.time_base);
        const auto picture = decoder->getVideoFrame(request);
        return picture && picture->pts == ff::rescale_q(time, stream.time_base, {1, 1000000});
    });
}

// Counting: FFmpeg's H.264 decoder tells av_log, at its most talkative level, of every piece of a
// stream that it takes up. One picture of the clip is one slice.

std::atomic<int> g_slices{0};

void count_slices(void* context, int /*level*/, const char* format, std::va_list arguments) {
    constexpr int slice = 1;
    constexpr int slice_of_key_frame = 5;
    constexpr char text[] = "nal_unit_type: %d";
    const auto* const* const described = static_cast<const AVClass* const*>(context);
    if (described == nullptr || *described == nullptr ||
        std::strcmp((*described)->class_name, "AVCodecContext") != 0 ||
        std::strncmp(format, text, sizeof text - 1) != 0) {
        return;
    }
    const int type = va_arg(arguments, int);
    if (type == slice || type == slice_of_key_frame) {
        ++g_slices;
    }
}

/// Returns how many pictures are decoded for one pass of a decoder that keeps `kept`; 0 if the pass
/// fails.
int count_decodes(std::size_t kept) {
    keep_pictures(kept);
    const ff::StreamCtx* const stream = long_gop_stream();
    ff::FFDecoder2 decoder;
    if (stream == nullptr || !decoder.open(stream)) {
        return 0;
    }
    g_slices = 0;  // opening a file decodes, too
    av_log_set_callback(count_slices);
    const bool ok = play_backwards(&decoder, *stream);
    decoder.close();
    av_log_set_callback(av_log_default_callback);
    return ok ? g_slices.load() : 0;
}

/// Pictures that a decoder may have in work beyond the one it hands out: one per thread, and those
/// that are shown before what they depend on. Each group ends with such a look into the next.
int most_in_work() {
    constexpr int reordered = 2;
    return static_cast<int>(std::max(1U, std::thread::hardware_concurrency())) + reordered;
}

/// Prints the counts. False if a picture was decoded more than once.
bool report_decodes() {
    const int kept_group = count_decodes(kGroup);
    const int kept_few = count_decodes(8);
    const int needed = static_cast<int>(kNeeded);
    const int limit = needed + static_cast<int>(kGroups) * most_in_work();
    const bool ok = kept_group >= needed && kept_group <= limit;
    std::printf(
        "300 pictures backwards, GOP 250, need %d decodes: %d with \"dec.max_vf\" 250 (at most %d "
        "with what threads begin) %s, %d with 8\n",
        needed, kept_group, limit, ok ? "ok" : "MISS", kept_few);
    return ok;
}

void run_framewell(benchmark::State& state) {
    keep_pictures(kGroup);
    const ff::StreamCtx* const stream = long_gop_stream();
    ff::FFDecoder2 decoder;
    if (stream == nullptr || !decoder.open(stream)) {
        state.SkipWithError("cannot open the decoder");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        if (!play_backwards(&decoder, *stream)) {
            state.SkipWithError("not the picture that was asked for");
            return;
        }
    }
}

/// The same pictures forwards: each is decoded once, whatever a loop does.
void run_loop(benchmark::State& state) {
    const ff::StreamCtx* const stream = long_gop_stream();
    const std::vector<std::int64_t> times = times_forwards(*stream);
    bench::PlainLoop loop(bench::path_of(bench::long_gop_clip()), stream->width, stream->height,
                          AV_PIX_FMT_RGBA);
    for ([[maybe_unused]] auto _ : state) {
        for (const std::int64_t time : times) {
            if (loop.show(time) != time) {
                state.SkipWithError("not the picture that was asked for");
                return;
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int status = bench::compare(
        argc, argv,
        {{"reverse/long_gop", "300 backwards, GOP 250, against forwards", bench::Judge::Ratio, 1.3,
          static_cast<double>(kPictures), 1, run_framewell, run_loop}});
    return report_decodes() && status == 0 ? 0 : 1;
}
