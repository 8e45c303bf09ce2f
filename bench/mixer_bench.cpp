// A minute of eight sources through AudioMixer, against the bare mixing routine on the same blocks
// and against FFmpeg's filter "amix" on the same input; and how often that asks the system for
// memory.

#include "comparison.h"

#include <framewell/framewell.h>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

std::atomic<long> g_allocations{0};

}  // namespace

// Sanitizers have allocators of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FW_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FW_SANITIZED 1
#endif
#endif

// Every way to the system's memory, counted; operator new comes through here as well.
#if defined(__GLIBC__) && !defined(FW_SANITIZED)
#define FW_COUNTS_ALLOCATIONS 1

extern "C" {
// NOLINTBEGIN(clang-diagnostic-reserved-identifier): glibc's own names for them
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t nmemb, std::size_t size);
void* __libc_realloc(void* ptr, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

// NOLINTEND(clang-diagnostic-reserved-identifier)

void* malloc(std::size_t size) {
    ++g_allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t nmemb, std::size_t size) {
    ++g_allocations;
    return __libc_calloc(nmemb, size);
}

void* realloc(void* ptr, std::size_t size) {
    ++g_allocations;
    return __libc_realloc(ptr, size);
}

int posix_memalign(void** memptr, std::size_t alignment, std::size_t size) {
    ++g_allocations;
    *memptr = __libc_memalign(alignment, size);
    return *memptr == nullptr ? ENOMEM : 0;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    ++g_allocations;
    return __libc_memalign(alignment, size);
}
}
#endif

namespace {

constexpr int kSources = 8;
constexpr int kRanges = 1800;  // of 1/30 s
constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr int kSamples = kRate / 30;
constexpr int kVolume = 100;
constexpr double kNoTarget = std::numeric_limits<double>::infinity();

/// What each source says over and over, as records and as FFmpeg's frames.
struct Sound {
    std::vector<std::shared_ptr<ff::AFrameCtx>> records;
    std::vector<std::shared_ptr<AVFrame>> frames;
};

Sound make_sound(ff::SampleFormat format) {
    std::mt19937 random(1);
    ff::RequireAudioFrame request;
    request.format = format;
    request.sample_rate = kRate;
    Sound sound;
    for (int source = 0; source < kSources; ++source) {
        auto record = ff::create_audioframe_ctx(request, kSamples);
        for (int i = 0; i < kSamples * kChannels; ++i) {
            const auto sample = static_cast<std::int16_t>(random() % 8000) - 4000;
            if (format == ff::SampleFormat::S16) {
                reinterpret_cast<std::int16_t*>(record->buffer)[i] =
                    static_cast<std::int16_t>(sample);
            } else {
                reinterpret_cast<float*>(record->buffer)[i] = static_cast<float>(sample) / 32768;
            }
        }
        auto frame = ff::create_avframe_with(kChannels, kRate, record->format, kSamples);
        std::memcpy(frame->data[0], record->buffer, static_cast<std::size_t>(record->size));
        sound.records.push_back(record);
        sound.frames.push_back(frame);
    }
    return sound;
}

/// Mixes ranges [from, to) of the minute.
bool mix_ranges(ff::AudioMixer* mixer, const Sound& sound, int from, int to) {
    bool ok = true;
    for (int range = from; range < to; ++range) {
        mixer->begin({{range, 30}, {range + 1, 30}});
        for (const auto& record : sound.records) {
            ok = mixer->getBuffer(record.get())->write(record, kVolume) && ok;
        }
        benchmark::DoNotOptimize(mixer->end()->data);
    }
    return ok;
}

/// Leaves samples over in every source, so that all further ranges begin with its queue.
void leave_samples_over(ff::AudioMixer* mixer, const Sound& sound) {
    mixer->begin({{-1, 30}, {-1, 480}});
    for (const auto& record : sound.records) {
        (void)mixer->getBuffer(record.get())->write(record, kVolume);
    }
    (void)mixer->end();
    mixer->begin({{-1, 480}, {0, 1}});
    (void)mixer->end();
}

bench::Side through_mixer(ff::SampleFormat format, bool left_over) {
    return [=](benchmark::State& state) {
        const Sound sound = make_sound(format);
        for ([[maybe_unused]] auto _ : state) {
            ff::AudioMixer mixer(kRate, kChannels, format);
            if (left_over) {
                leave_samples_over(&mixer, sound);
            }
            if (!mix_ranges(&mixer, sound, 0, kRanges)) {
                state.SkipWithError("the mixer refused a frame");
            }
        }
    };
}

bench::Side bare_routine(ff::SampleFormat format) {
    return [=](benchmark::State& state) {
        const Sound sound = make_sound(format);
        const SDL_AudioFormat code = format == ff::SampleFormat::S16 ? 2 : 8;
        const auto size = static_cast<std::uint32_t>(sound.records[0]->size);
        auto* const block = static_cast<std::uint8_t*>(bg::mempool::malloc(size, 16));
        for ([[maybe_unused]] auto _ : state) {
            for (int range = 0; range < kRanges; ++range) {
                for (const auto& record : sound.records) {
                    SDL_MixAudioFormat(block, record->buffer, code, size, kVolume);
                }
                benchmark::ClobberMemory();
            }
        }
        bg::mempool::free(block);
    };
}

struct Graph {
    struct Free {
        void operator()(AVFilterGraph* owned) const { avfilter_graph_free(&owned); }
    };

    std::unique_ptr<AVFilterGraph, Free> graph{avfilter_graph_alloc()};
    std::array<AVFilterContext*, kSources> sources{};
    AVFilterContext* sink = nullptr;
};

AVFilterContext* add_filter(Graph* graph, const char* filter, const std::string& name,
                            const std::string& arguments) {
    AVFilterContext* context = nullptr;
    const int result =
        avfilter_graph_create_filter(&context, avfilter_get_by_name(filter), name.c_str(),
                                     arguments.c_str(), nullptr, graph->graph.get());
    return result < 0 ? nullptr : context;
}

/// Eight sources into "amix", and what comes out in the format that went in. Null on failure.
std::unique_ptr<Graph> make_graph(ff::SampleFormat format) {
    auto graph = std::make_unique<Graph>();
    const std::string format_name =
        av_get_sample_fmt_name(static_cast<AVSampleFormat>(ff::samplefmt_to_avsamplefmt(format)));
    AVFilterContext* const mix =
        add_filter(graph.get(), "amix", "mix", "inputs=" + std::to_string(kSources));
    AVFilterContext* const form =
        add_filter(graph.get(), "aformat", "form", "sample_fmts=" + format_name);
    graph->sink = add_filter(graph.get(), "abuffersink", "sink", "");
    if (mix == nullptr || form == nullptr || graph->sink == nullptr ||
        avfilter_link(mix, 0, form, 0) < 0 || avfilter_link(form, 0, graph->sink, 0) < 0) {
        return nullptr;
    }
    for (unsigned i = 0; i < kSources; ++i) {
        graph->sources[i] =
            add_filter(graph.get(), "abuffer", "source" + std::to_string(i),
                       "sample_rate=48000:time_base=1/48000:sample_fmt=" + format_name +
                           ":channel_layout=stereo");
        if (graph->sources[i] == nullptr || avfilter_link(graph->sources[i], 0, mix, i) < 0) {
            return nullptr;
        }
    }
    return avfilter_graph_config(graph->graph.get(), nullptr) < 0 ? nullptr : std::move(graph);
}

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

/// Sends one range into the graph and takes what comes out. Returns the samples, -1 on failure.
int filter_range(Graph* graph, const Sound& sound, int range, AVFrame* out) {
    for (std::size_t i = 0; i < kSources; ++i) {
        AVFrame* const frame = sound.frames[i].get();
        frame->pts = static_cast<std::int64_t>(range) * kSamples;
        if (av_buffersrc_add_frame_flags(graph->sources[i], frame, AV_BUFFERSRC_FLAG_KEEP_REF) <
            0) {
            return -1;
        }
    }
    int samples = 0;
    while (av_buffersink_get_frame(graph->sink, out) >= 0) {
        samples += out->nb_samples;
        av_frame_unref(out);
    }
    return samples;
}

bench::Side through_amix(ff::SampleFormat format) {
    return [=](benchmark::State& state) {
        const Sound sound = make_sound(format);
        const std::unique_ptr<AVFrame, FreeFrame> out(av_frame_alloc());
        for ([[maybe_unused]] auto _ : state) {
            const std::unique_ptr<Graph> graph = make_graph(format);
            long samples = 0;
            for (int range = 0; graph != nullptr && range < kRanges; ++range) {
                samples += filter_range(graph.get(), sound, range, out.get());
            }
            // The last samples may still be inside.
            if (samples < (kRanges - 2L) * kSamples) {
                state.SkipWithError("amix did not give the minute");
            }
        }
    };
}

/// Whether --only leaves this row in.
[[maybe_unused]] bool is_asked_for(int argc, char** argv, const std::string& name) {
    constexpr char only[] = "--only=";
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], only, sizeof only - 1) == 0) {
            return name.find(argv[i] + sizeof only - 1) != std::string::npos;
        }
    }
    return true;
}

[[maybe_unused]] void count_allocations(const char* title, bool left_over) {
    const Sound sound = make_sound(ff::SampleFormat::S16);
    ff::AudioMixer mixer(kRate, kChannels, ff::SampleFormat::S16);
    if (left_over) {
        leave_samples_over(&mixer, sound);
    }
    (void)mix_ranges(&mixer, sound, 0, 2);
    const long before = g_allocations;
    (void)mix_ranges(&mixer, sound, 2, kRanges);
    const long allocations = g_allocations - before;
    std::printf("%-46s %12ld %53s\n", title, allocations,
                allocations == 0 ? "0    ok" : "0    MISS");
}

}  // namespace

int main(int argc, char** argv) {
    constexpr auto s16 = ff::SampleFormat::S16;
    constexpr auto flt = ff::SampleFormat::Flt;
    constexpr auto ratio = bench::Judge::Ratio;
    const std::vector<bench::Row> rows = {
        {"mixer_s16", "mixer, 16-bit, beside the routine", ratio, 2.2, kRanges, 5,
         through_mixer(s16, false), bare_routine(s16)},
        {"mixer_f32", "mixer, float, beside the routine", ratio, 2.2, kRanges, 5,
         through_mixer(flt, false), bare_routine(flt)},
        {"mixer_s16_queue", "the same, 16-bit, with samples left over", ratio, kNoTarget, kRanges,
         5, through_mixer(s16, true), bare_routine(s16)},
        {"mixer_f32_queue", "the same, float, with samples left over", ratio, kNoTarget, kRanges, 5,
         through_mixer(flt, true), bare_routine(flt)},
        {"mixer_s16_amix", "mixer, 16-bit, beside amix", ratio, 0.25, kRanges, 2,
         through_mixer(s16, false), through_amix(s16)},
        {"mixer_f32_amix", "mixer, float, beside amix", ratio, 0.75, kRanges, 2,
         through_mixer(flt, false), through_amix(flt)},
        {"mixer_s16_queue_amix", "the same, 16-bit, with samples left over", ratio, kNoTarget,
         kRanges, 2, through_mixer(s16, true), through_amix(s16)},
        {"mixer_f32_queue_amix", "the same, float, with samples left over", ratio, kNoTarget,
         kRanges, 2, through_mixer(flt, true), through_amix(flt)},
    };
    const int status = bench::compare(argc, argv, rows);
#ifdef FW_COUNTS_ALLOCATIONS
    if (!is_asked_for(argc, argv, "mixer_allocations")) {
        return status;
    }
    count_allocations("allocations after two ranges", false);
    count_allocations("the same, with samples left over", true);
#endif
    return status;
}
