#include "commands.h"
#include "interrupt.h"
#include "media_file.h"
#include "output_sound.h"
#include "progress.h"
#include "time_text.h"
#include "tool_log.h"

#include <framewell/audio_mixer.h>
#include <framewell/ffdecoder.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tool {

namespace {

constexpr int kRangesPerSecond = 30;
constexpr int kFullVolume = 128;

[[noreturn]] void refuse(const std::string& text) {
    throw Failure(text, Exit::Usage);
}

/// One INPUT of the command line.
struct Input {
    std::string file;
    ff::Rational offset{0, 1};  // output time at which it starts, seconds
    int volume = kFullVolume;
};

// Takes ":VOLUME" off the end of `text` if it is there.
int take_volume(std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 1 == text.size() ||
        text.find_first_not_of("0123456789", colon + 1) != std::string::npos) {
        return kFullVolume;
    }
    const std::string number = text.substr(colon + 1);
    if (number.size() > 3 || std::stoi(number) > kFullVolume) {
        refuse(text + ": the volume after the colon is a number from 0 to 128");
    }
    text.erase(colon);
    return std::stoi(number);
}

// FILE[@OFFSET][:VOLUME]. Names may have either sign in them: what is a file as it stands is taken
// as it stands.
Input parse_input(const std::string& text) {
    Input input;
    input.file = text;
    std::error_code ignored;  // what cannot be looked at is no such file
    if (std::filesystem::exists(text, ignored)) {
        return input;
    }
    input.volume = take_volume(input.file);
    const std::size_t at = input.file.rfind('@');
    if (at != std::string::npos) {
        const ParsedTime offset = parse_time(std::string_view(input.file).substr(at + 1));
        if (offset.ok) {
            input.offset = offset.time;
            input.file.erase(at);
        }
    }
    return input;
}

/// A source that is being mixed.
struct Source {
    const ff::StreamCtx* stream = nullptr;
    ff::FFDecoder decoder;
    std::int64_t first_sample = 0;  // of the output, where the source starts
    int volume = kFullVolume;
    bool was_heard = false;
};

// When the sound of the stream ends, seconds from the movie's start; 0/1 if nobody knows.
ff::Rational end_of(const ff::MovieCtx& movie, const ff::StreamCtx& stream) {
    if (stream.duration > 0) {
        return ff::timestamp_to_time(stream.duration, stream.time_base);
    }
    return movie.duration > 0 ? ff::Rational{movie.duration, 1000000} : ff::Rational{0, 1};
}

/// What came out so far.
struct Loudness {
    double peak = 0;  // 1 is full scale
    std::int64_t clipped = 0;

    template <class T>
    void add(const ff::PcmBuffer& block, double full, double low, double high) {
        const std::size_t count = static_cast<std::size_t>(block.size) / sizeof(T);
        for (std::size_t i = 0; i < count; ++i) {
            T sample{};
            std::memcpy(&sample, block.data + i * sizeof sample, sizeof sample);
            const auto value = static_cast<double>(sample);
            peak = std::max(peak, std::fabs(value) / full);
            clipped += value <= low || value >= high ? 1 : 0;
        }
    }
};

/// Mixes range by range, as a player would have it done.
class MixCommand {
public:
    explicit MixCommand(const MixOptions& options)
        : m_options(options),
          m_from(options.from.empty() ? ff::Rational{0, 1} : parse_time(options.from).time),
          m_target(options.out),
          m_mixer(options.rate, options.channels, options.format) {}

    Exit run() {
        choose_device(m_options.hw, m_options.quiet);
        watch_interrupts();
        open();
        mix();
        if (is_interrupted()) {
            return Exit::Interrupted;
        }
        m_target.finish();
        report();
        return check_sources();
    }

private:
    void open() {
        ff::Rational last{0, 1};
        for (const std::string& text : m_options.inputs) {
            const Input input = parse_input(text);
            const ff::MovieCtx& movie = need_file(input.file);
            auto source = std::make_unique<Source>();
            source->stream = &pick_stream(movie, ff::StreamType::Audio, std::nullopt);
            open_stream(*source->stream, source->decoder);
            source->volume = input.volume;
            // A source starts on a sample, so that its spans are those that the mixer counts.
            source->first_sample = ff::time_to_timestamp(input.offset - m_from, tick());
            const ff::Rational end = input.offset + end_of(movie, *source->stream);
            last = end > last ? end : last;
            m_sources.push_back(std::move(source));
        }
        m_to = m_options.to.empty() ? last : parse_time(m_options.to).time;
        if (m_from >= m_to) {
            refuse("nothing to mix: the sound ends before --from; give --from and --to a span");
        }
    }

    ff::Rational tick() const { return {1, m_options.rate}; }

    void mix() {
        Progress progress(m_options.progress, m_options.quiet);
        const double length = seconds(m_to - m_from);
        ff::Range range{m_from, m_from};
        for (std::int64_t i = 1; range.end < m_to && !is_interrupted(); ++i) {
            range.start = range.end;
            range.end = m_from + ff::Rational{i, kRangesPerSecond};
            if (range.end > m_to) {
                range.end = m_to;
            }
            mix_range(range);
            progress.show(seconds(range.end - m_from) / length, "mixing");
        }
    }

    static double seconds(const ff::Rational& time) {
        return static_cast<double>(time.num) / static_cast<double>(time.den);
    }

    void mix_range(const ff::Range& range) {
        const std::int64_t end = ff::time_to_timestamp(range.end - m_from, tick());
        m_mixer.begin(range);
        for (const auto& source : m_sources) {
            const std::shared_ptr<ff::AFrameCtx> sound = sound_of(*source, m_samples, end);
            if (sound != nullptr && sound->nb_samples > 0) {
                source->was_heard = true;
                (void)m_mixer.getBuffer(source.get())->write(sound, source->volume);  // is logged
            }
        }
        const std::shared_ptr<ff::PcmBuffer> block = m_mixer.end();
        if (is_interrupted() || end <= m_samples) {
            return;
        }
        if (block->size == 0) {
            throw Failure("no memory for sound with " + std::to_string(m_options.channels) +
                          " channels at " + std::to_string(m_options.rate) +
                          " Hz; ask for less with --channels and --rate");
        }
        write(*block, static_cast<int>(end - m_samples));
        m_samples = end;
    }

    // What the source has for the samples [begin, end) of the output, the first of them first.
    std::shared_ptr<ff::AFrameCtx> sound_of(Source& source, std::int64_t begin, std::int64_t end) {
        const std::int64_t first = std::max(begin, source.first_sample);
        if (first >= end) {
            return nullptr;
        }
        ff::RequireAudioFrame request;
        request.range = {{first - source.first_sample, m_options.rate},
                         {end - source.first_sample, m_options.rate}};
        request.format = m_options.format;
        request.sample_rate = m_options.rate;
        request.channels = m_options.channels;
        request.abort_flag = &interrupt_flag();
        std::shared_ptr<ff::AFrameCtx> sound = source.decoder.getAudioFrame(request);
        if (sound == nullptr || first == begin) {
            return sound;
        }
        // It starts within the range: silence goes before it.
        const int silence = static_cast<int>(first - begin);
        auto later = ff::create_audioframe_ctx(request, silence + sound->nb_samples);
        const std::string_view bytes = sample_bytes(*sound);
        if (later->buffer != nullptr) {
            std::memcpy(later->buffer + (static_cast<std::size_t>(later->size) - bytes.size()),
                        bytes.data(), bytes.size());
        }
        return later;
    }

    void write(const ff::PcmBuffer& block, int nb_samples) {
        ff::AFrameCtx record;  // borrows the block's samples: it has no buffer of its own
        record.channels = m_options.channels;
        record.sample_rate = m_options.rate;
        record.format = ff::samplefmt_to_avsamplefmt(m_options.format);
        record.data[0] = block.data;
        record.linesize[0] = block.size;
        record.nb_samples = nb_samples;
        m_target.write(record);
        switch (m_options.format) {
            case ff::SampleFormat::S32:
                m_loudness.add<std::int32_t>(block, 2147483648.0, INT32_MIN, INT32_MAX);
                break;
            case ff::SampleFormat::Flt:  // not clipped here, but by whoever plays it
                m_loudness.add<float>(block, 1.0, -kBeyondFull, kBeyondFull);
                break;
            default:
                m_loudness.add<std::int16_t>(block, 32768.0, INT16_MIN, INT16_MAX);
        }
    }

    void report() const {
        const double seconds_long =
            static_cast<double>(m_samples) / static_cast<double>(m_options.rate);
        if (m_options.json) {
            Json object;
            object["out"] = m_options.out;
            object["nb_samples"] = m_samples;
            object["seconds"] = seconds_long;
            object["rate"] = m_options.rate;
            object["channels"] = m_options.channels;
            object["peak"] = m_loudness.peak;
            object["clipped"] = m_loudness.clipped;
            print_json(object);
        } else if (!m_target.is_standard_output()) {
            char text[128];
            (void)std::snprintf(text, sizeof text, "%.3f s, %lld samples, peak %.4f, clipped: %lld",
                                seconds_long, static_cast<long long>(m_samples), m_loudness.peak,
                                static_cast<long long>(m_loudness.clipped));
            print_line(printable(std::string(text) + " -> " + m_options.out));
        }
    }

    // A source without a sound in the span may be meant so; one that could be in it may not.
    Exit check_sources() {
        Exit exit = Exit::Done;
        for (const auto& source : m_sources) {
            if (!source->was_heard && source->first_sample < m_samples) {
                print_error(stream_name(*source->stream) + " gave no sound" + m_reason.text() +
                            "; see its length with `framewell probe`, or the log with -v");
                exit = Exit::Failed;
            }
        }
        return exit;
    }

    // The least number above full scale: a float of exactly 1 can be played.
    static constexpr double kBeyondFull = 1.0 + 1.0 / (1 << 23);

    const MixOptions& m_options;
    const ff::Rational m_from;
    ff::Rational m_to{0, 1};
    SoundTarget m_target;
    ff::AudioMixer m_mixer;
    std::vector<std::unique_ptr<Source>> m_sources;
    std::int64_t m_samples = 0;  // per channel, mixed so far
    Loudness m_loudness;
    Reason m_reason;
};

void check_time(const char* option, const std::string& text) {
    const ParsedTime time = parse_time(text);
    if (!text.empty() && !time.ok) {
        refuse(std::string(option) + " " + text + ": this is no time; " + time.error);
    }
}

}  // namespace

Exit run_mix(const MixOptions& options) {
    check_time("--from", options.from);
    check_time("--to", options.to);
    if (options.out == "-" && options.json) {
        refuse("-o - and --json both want standard output; give -o a file name");
    }
    return MixCommand(options).run();
}

}  // namespace tool
