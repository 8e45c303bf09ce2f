// How long a host waits for a request that it has cancelled. Every way to ask is begun, its flag is
// set at a moment of its own, and what counts is the time from the flag to the return, held against
// the longest single call of the decoder in the same run: that is the step in which a request can
// notice a flag.

#include "clips.h"
#include "fresh_names.h"

#include <framewell/base/logger.h>
#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>
#include <framewell/ffdecoder2.h>
#include <framewell/movie_info.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Flag = std::atomic<bool>;

std::atomic<std::int64_t> g_longest_call_ns{0};
std::atomic<int> g_calls{0};  // that have begun, of those that take packets and give frames

std::int64_t ns_since(Clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
}

void note_call(Clock::time_point begin) {
    const std::int64_t length = ns_since(begin);
    std::int64_t longest = g_longest_call_ns;
    while (length > longest && !g_longest_call_ns.compare_exchange_weak(longest, length)) {
    }
}

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// They come before libavcodec's, and call them.
extern "C" int avcodec_send_packet(AVCodecContext* avctx, const AVPacket* avpkt) {
    static auto* const s_real = real<int(AVCodecContext*, const AVPacket*)>("avcodec_send_packet");
    ++g_calls;
    const Clock::time_point begin = Clock::now();
    const int result = s_real(avctx, avpkt);
    note_call(begin);
    return result;
}

extern "C" int avcodec_receive_frame(AVCodecContext* ctx, AVFrame* frame) {
    static auto* const s_real = real<int(AVCodecContext*, AVFrame*)>("avcodec_receive_frame");
    ++g_calls;
    const Clock::time_point begin = Clock::now();
    const int result = s_real(ctx, frame);
    note_call(begin);
    return result;
}

namespace {

/// One way to ask. `prepare` makes what is needed, with nothing decoded; what it returns asks.
struct EntryPoint {
    const char* title;
    std::function<std::function<void(Flag*)>()> prepare;
};

struct Waits {
    std::vector<double> ns;  ///< from flag to return, of the requests that were still running
    double longest_call_ns = 0;
    int most_calls = 0;  ///< of the decoder that began after the flag was set
};

[[noreturn]] void stop(const char* text) {
    (void)std::fprintf(stderr, "cancel_bench: %s\n", text);
    std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
}

const ff::StreamCtx* stream_of(const std::string& path, ff::StreamType type) {
    const ff::StreamCtx* const stream = ff::first_stream(ff::FFDecoder::probe(path.c_str()), type);
    if (stream == nullptr) {
        stop("cannot read the clip");
    }
    return stream;
}

template <class Decoder>
std::shared_ptr<Decoder> opened(const ff::StreamCtx* stream) {
    auto decoder = std::make_shared<Decoder>();
    if (!decoder->open(stream)) {
        stop("cannot open the clip");
    }
    return decoder;
}

/// Behind most of a group of 250 pictures.
constexpr ff::Rational kLate{8, 1};

ff::RequireVideoFrame late_picture(Flag* flag) {
    ff::RequireVideoFrame request;
    request.time = kLate;
    request.abort_flag = flag;
    return request;
}

ff::RequireAudioFrame long_span(Flag* flag) {
    ff::RequireAudioFrame request;
    request.range = {{0, 1}, {50, 1}};
    request.format = ff::SampleFormat::S16;
    request.sample_rate = 44100;
    request.channels = 2;
    request.abort_flag = flag;
    return request;
}

/// Runs a background request to its end, with or without a result.
void wait_for_background(const std::function<void(std::shared_ptr<void>)>& ask) {
    struct End {
        std::mutex mutex;
        std::condition_variable reached;
        bool is_reached = false;
    };

    const auto end = std::make_shared<End>();
    // What a callback carries is destroyed when its request is over.
    ask(std::shared_ptr<void>(nullptr, [end](void*) {
        const std::lock_guard<std::mutex> lock(end->mutex);
        end->is_reached = true;
        end->reached.notify_all();
    }));
    std::unique_lock<std::mutex> lock(end->mutex);
    end->reached.wait(lock, [&] { return end->is_reached; });
}

std::function<void(Flag*)> background_picture(const ff::StreamCtx* stream) {
    return [decoder = opened<ff::FFDecoder>(stream)](Flag* flag) {
        wait_for_background([&](const std::shared_ptr<void>& end) {
            decoder->getVideoFrameAsync(late_picture(flag), [end](const auto&) {});
        });
    };
}

std::function<void(Flag*)> background_sound(const ff::StreamCtx* stream) {
    return [decoder = opened<ff::FFDecoder>(stream)](Flag* flag) {
        wait_for_background([&](const std::shared_ptr<void>& end) {
            decoder->getAudioFrameAsync(long_span(flag), [end](const auto&) {});
        });
    };
}

template <class Decoder>
std::function<void(Flag*)> picture_of(std::shared_ptr<Decoder> decoder) {
    return [decoder](Flag* flag) { (void)decoder->getVideoFrame(late_picture(flag)); };
}

std::function<void(Flag*)> backwards(const ff::StreamCtx* stream) {
    auto decoder = opened<ff::FFDecoder2>(stream);
    decoder->setRevert(true);
    return picture_of(decoder);
}

std::function<void(Flag*)> filtered(const ff::StreamCtx* stream) {
    auto decoder = opened<ff::FFDecoder2>(stream);
    (void)decoder->setFilters("hflip");
    return picture_of(decoder);
}

std::function<void(Flag*)> cover_of(const std::string& clip) {
    return [clip](Flag* flag) {
        ff::RequireMvImage request;
        request.time = kLate;
        request.abort_flag = flag;
        (void)ff::getMovieImage(clip.c_str(), request, nullptr);
    };
}

std::vector<EntryPoint> entry_points(bench::FreshNames* names) {
    const std::string clip = bench::path_of(bench::long_gop_clip());
    const std::string big = bench::path_of(bench::clip_named("h264_gop250"));
    const std::string mp3 = bench::path_of(bench::sound_clips().at(1));
    const ff::StreamCtx* const video = stream_of(clip, ff::StreamType::Video);
    const ff::StreamCtx* const full_hd = stream_of(big, ff::StreamType::Video);
    const ff::StreamCtx* const audio = stream_of(mp3, ff::StreamType::Audio);
    return {
        {"getVideoFrame, 640x360", [=] { return picture_of(opened<ff::FFDecoder>(video)); }},
        {"getVideoFrame, 1920x1080", [=] { return picture_of(opened<ff::FFDecoder>(full_hd)); }},
        {"getVideoFrame, backwards", [=] { return backwards(video); }},
        {"getVideoFrame, filtered", [=] { return filtered(video); }},
        {"getVideoFrameAsync", [=] { return background_picture(video); }},
        {"getMovieImage", [=] { return cover_of(clip); }},
        {"getAudioFrame",
         [=] {
             return [decoder = opened<ff::FFDecoder>(audio)](Flag* flag) {
                 (void)decoder->getAudioFrame(long_span(flag));
             };
         }},
        {"getAudioFrameAsync", [=] { return background_sound(audio); }},
        {"probe of a file without a duration",
         [=] {
             // A name that the process has not seen, for a stream that has to be decoded to its
             // end.
             return [path = names->next(bench::cache_folder() + "/cancel.mkv")](Flag* flag) {
                 (void)ff::FFDecoder::probe(path.c_str(), flag);
             };
         }},
    };
}

/// Sets the flag once so many calls of the decoder have been made, as another thread would, and
/// adds what follows to `waits`, unless the request has ended before.
void measure_once(const EntryPoint& entry, int set_after, Waits* waits) {
    const std::function<void(Flag*)> ask = entry.prepare();
    Flag flag{false};
    std::atomic<bool> ended{false};
    g_calls = 0;
    Clock::time_point end;
    std::thread asking([&] {
        ask(&flag);
        end = Clock::now();
        ended = true;
    });
    while (g_calls < set_after && !ended) {
        std::this_thread::yield();
    }
    const Clock::time_point set = Clock::now();
    flag = true;
    const int calls_before = g_calls;
    asking.join();
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(end - set).count();
    if (ns >= 0) {
        waits->ns.push_back(static_cast<double>(ns));
        waits->most_calls = std::max(waits->most_calls, g_calls - calls_before);
    }
}

Waits measure(const EntryPoint& entry, int rounds) {
    Waits waits;
    g_longest_call_ns = 0;
    for (int round = 0; round < rounds; ++round) {
        measure_once(entry, 6 + 7 * (round % 12), &waits);
    }
    waits.longest_call_ns = static_cast<double>(g_longest_call_ns.load());
    return waits;
}

void print_row(const EntryPoint& entry, Waits waits) {
    if (waits.ns.empty()) {
        std::printf("%-38s  every request ended before its flag was set\n", entry.title);
        return;
    }
    std::sort(waits.ns.begin(), waits.ns.end());
    const double median = waits.ns[waits.ns.size() / 2];
    const double longest = waits.ns.back();
    std::printf("%-38s %6zu %9.2f %9.2f %12.0f us %9.0f us %6d\n", entry.title, waits.ns.size(),
                median / waits.longest_call_ns, longest / waits.longest_call_ns, longest / 1000,
                waits.longest_call_ns / 1000, waits.most_calls);
}

/// The pictures of the long-GOP clip alone, in a file that does not tell how long they last.
void make_live_clip() {
    const std::string target = bench::cache_folder() + "/cancel.mkv";
    const std::string command = "ffmpeg -v error -y -i '" + bench::path_of(bench::long_gop_clip()) +
                                "' -map 0:v -c copy -f matroska -live 1 '" + target + "'";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): clips are made before other threads run
    if (std::system(command.c_str()) != 0) {
        stop("ffmpeg cannot make a clip");
    }
}

}  // namespace

int main(int argc, char** argv) {
    constexpr char option[] = "--rounds=";
    int rounds = 60;
    if (argc == 2 && std::strncmp(argv[1], option, sizeof option - 1) == 0) {
        rounds = std::max(1, std::atoi(argv[1] + sizeof option - 1));
    } else if (argc > 1) {
        stop("usage: cancel_bench [--rounds=N]");
    }
    av_log_set_level(AV_LOG_QUIET);
    mox::Logger::instance()->setLevel(-1);
    make_live_clip();
    bench::FreshNames names;
    std::printf(
        "From the flag to the return of the request, in units of the longest single call of the\n"
        "decoder in the same run; \"calls\": the most that began in that time.\n\n"
        "%-38s %6s %9s %9s %15s %12s %6s\n",
        "", "waits", "median", "longest", "longest", "one call", "calls");
    for (const EntryPoint& entry : entry_points(&names)) {
        print_row(entry, measure(entry, rounds));
    }
    return 0;
}
