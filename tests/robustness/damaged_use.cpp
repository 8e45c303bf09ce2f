#include "tests/robustness/damaged_use.h"

#include <framewell/framewell.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>
#include <vector>

namespace fw_test {

namespace {

constexpr int kRequests = 20;     // for each stream
constexpr int kMoreRequests = 4;  // for each of the other things that hosts do
constexpr int kMaxStreams = 4;    // a damaged header may announce dozens

constexpr std::int64_t kSecond = 1000000;  // microseconds

/// Reads all of a result, so that a sanitizer sees a buffer that is shorter than it says.
unsigned sum_of(const std::uint8_t* bytes, std::int32_t size) {
    return bytes != nullptr ? std::accumulate(bytes, bytes + size, 0U) : 0U;
}

volatile unsigned g_sum = 0;  // keeps the compiler from leaving the reading out

class FileUse {
public:
    FileUse(const std::string& path, Random* random, Yield* yield)
        : m_path(path), m_random(*random), m_yield(*yield) {}

    void run() {
        step("probe", -1, {});
        const ff::MovieCtx* const movie = ff::FFDecoder::probe(m_path.c_str(), nullptr);
        if (movie == nullptr) {
            return;
        }
        m_yield.is_opened = true;
        m_yield.streams = movie->nb_streams;
        for (int i = 0; i < std::min(movie->nb_streams, kMaxStreams); ++i) {
            use_stream(*movie->streams[i]);
        }
        const std::size_t choice = m_random.below(6);
        for (int i = 0; i < std::min(movie->nb_streams, kMaxStreams); ++i) {
            use_otherwise(*movie->streams[i], choice);
        }
        if (choice == 0) {
            ask_for_cover();
        }
    }

private:
    void step(const char* what, int stream, const ff::Rational& time) {
        ++m_yield.steps;
        (void)std::snprintf(m_yield.step, sizeof m_yield.step, "%s, stream %d, time %lld/%lld",
                            what, stream, static_cast<long long>(time.num),
                            static_cast<long long>(time.den));
    }

    void complain(const char* what) {
        if (m_yield.wrong == nullptr) {
            m_yield.wrong = what;
        }
    }

    // Times

    /// How long the stream says that it is, microseconds; ten seconds if it does not say.
    static std::int64_t length_of(const ff::StreamCtx& stream) {
        const bool is_known = stream.duration > 0 && stream.time_base.num > 0 &&
                              stream.time_base.den > 0 &&
                              stream.duration < std::numeric_limits<std::int64_t>::max();
        const std::int64_t length =
            is_known ? ff::rescale_q(stream.duration, stream.time_base, {1, kSecond}) : 0;
        return length > 0 ? length : 10 * kSecond;
    }

    /// A stretch of a stream, microseconds.
    struct Stretch {
        std::int64_t start;
        std::int64_t length;
    };

    /// The stream and a little more, or, mostly, a second of it: that costs a second's decoding
    /// instead of all. A duration of years is the damage speaking, so there, too.
    Stretch any_stretch(const ff::StreamCtx& stream) {
        const std::int64_t length = length_of(stream);
        if (m_random.once_in(4) && length <= 24 * 3600 * kSecond) {
            return {0, length + length / 16};
        }
        const bool is_early = m_random.once_in(3) || length > 24 * 3600 * kSecond;
        const std::int64_t reach = is_early ? std::min(length, 10 * kSecond) : length;
        return {static_cast<std::int64_t>(m_random.below(static_cast<std::size_t>(reach))),
                kSecond};
    }

    /// Seldom a time that no stream has.
    ff::Rational any_time(const Stretch& stretch) {
        static constexpr ff::Rational kOdd[] = {{-1, 1},
                                                {std::numeric_limits<std::int64_t>::max(), 1},
                                                {std::numeric_limits<std::int64_t>::min(), kSecond},
                                                {1, 0},
                                                {1000000, 1}};
        if (m_random.once_in(20)) {
            return kOdd[m_random.below(std::size(kOdd))];
        }
        const std::size_t choices = static_cast<std::size_t>(stretch.length) + 1;
        return {stretch.start + static_cast<std::int64_t>(m_random.below(choices)), kSecond};
    }

    /// Mostly the times come in their order: any other may cost a decode for each of them.
    std::vector<ff::Rational> any_times(const ff::StreamCtx& stream, int count) {
        const Stretch stretch = any_stretch(stream);
        std::vector<ff::Rational> times;
        for (int i = 0; i < count; ++i) {
            times.push_back(any_time(stretch));
        }
        if (!m_random.once_in(8)) {
            std::stable_sort(times.begin(), times.end(),
                             [](const ff::Rational& a, const ff::Rational& b) {
                                 return a.num / std::max<std::int64_t>(a.den, 1) <
                                        b.num / std::max<std::int64_t>(b.den, 1);
                             });
        }
        return times;
    }

    // Requests

    /// Small pictures are quick to convert; a damaged header may announce huge ones.
    static int divider_of(const ff::StreamCtx& stream) {
        return std::max(1, std::min(stream.width, stream.height) / 60);
    }

    ff::RequireVideoFrame picture(const ff::StreamCtx& stream, const ff::Rational& time) {
        static constexpr ff::PixelFormat kFormats[] = {
            ff::PixelFormat::Rgba, ff::PixelFormat::Yuv420p, ff::PixelFormat::Nv12,
            ff::PixelFormat::Bgra64le};
        ff::RequireVideoFrame request;
        request.time = time;
        request.format = m_random.once_in(30) ? ff::PixelFormat::SeekOnly
                                              : kFormats[m_random.below(std::size(kFormats))];
        request.divider = divider_of(stream);
        return request;
    }

    ff::RequireAudioFrame span(const ff::Rational& time) {
        static constexpr ff::SampleFormat kFormats[] = {ff::SampleFormat::U8, ff::SampleFormat::S16,
                                                        ff::SampleFormat::S32,
                                                        ff::SampleFormat::Flt};
        static constexpr std::int32_t kRates[] = {8000, 44100, 48000};
        ff::RequireAudioFrame request;
        request.range.start = time;
        request.range.end = time + ff::Rational{m_random.between(1, 8), 40};
        if (m_random.once_in(30)) {
            std::swap(request.range.start, request.range.end);
        }
        request.format = kFormats[m_random.below(std::size(kFormats))];
        request.sample_rate = kRates[m_random.below(std::size(kRates))];
        request.channels = m_random.once_in(2) ? 2 : 1;
        return request;
    }

    void take(const ff::VFrameCtx* picture) {
        ++m_yield.requests;
        if (picture == nullptr) {
            return;
        }
        ++m_yield.pictures;
        if (picture->width <= 0 || picture->height <= 0 || picture->buffer == nullptr ||
            picture->data[0] == nullptr || picture->linesize[0] <= 0 || picture->size <= 0) {
            complain("a picture without pixels");
            return;
        }
        g_sum = g_sum + sum_of(picture->buffer, picture->size);
    }

    void take(const ff::AFrameCtx* sound) {
        ++m_yield.requests;
        if (sound == nullptr || sound->nb_samples == 0) {
            return;
        }
        ++m_yield.spans;
        if (sound->nb_samples < 0 || sound->buffer == nullptr || sound->size <= 0 ||
            sound->channels <= 0) {
            complain("a span without samples");
            return;
        }
        g_sum = g_sum + sum_of(sound->buffer, sound->size);
    }

    void ask(ff::FFDecoder* decoder, const ff::StreamCtx& stream, const ff::Rational& time) {
        if (stream.type == ff::StreamType::Video) {
            step("picture", stream.index, time);
            take(decoder->getVideoFrame(picture(stream, time)).get());
        } else if (stream.type == ff::StreamType::Audio) {
            step("sound", stream.index, time);
            const ff::RequireAudioFrame request = span(time);
            const auto sound = decoder->getAudioFrame(request);
            take(sound.get());
            // What follows a span is cut out of the same run.
            if (sound != nullptr && m_random.once_in(3)) {
                ff::RequireAudioFrame next = request;
                next.range = {request.range.end,
                              request.range.end + request.range.end - request.range.start};
                take(decoder->getAudioFrame(next).get());
            }
        }
    }

    void use_stream(const ff::StreamCtx& stream) {
        step("open", stream.index, {});
        ff::FFDecoder decoder;
        (void)decoder.open(&stream);  // one that is not open answers empty
        for (const ff::Rational& time : any_times(stream, kRequests)) {
            ask(&decoder, stream, time);
        }
        step("close", stream.index, {});
    }

    // What else hosts do

    void use_otherwise(const ff::StreamCtx& stream, std::size_t choice) {
        switch (choice) {
            case 1:
                use_with_effects(stream);
                break;
            case 2:
                use_in_background(stream);
                break;
            case 3:
                use_with_a_second_decoder(stream);
                break;
            default:
                break;
        }
    }

    void use_with_effects(const ff::StreamCtx& stream) {
        const bool is_video = stream.type == ff::StreamType::Video;
        ff::FFDecoder2 decoder;
        step("open for effects", stream.index, {});
        if (!decoder.open(&stream)) {
            return;
        }
        step("effects", stream.index, {});
        decoder.setRevert(m_random.once_in(2));
        (void)decoder.setSpeed(static_cast<double>(m_random.between(50, 300)) / 100);
        (void)decoder.setFilters(is_video ? "hflip" : "volume=0.5");
        for (const ff::Rational& time : any_times(stream, kMoreRequests)) {
            ask(&decoder, stream, time);
        }
        decoder.close();
        (void)decoder.reopen();
        for (const ff::Rational& time : any_times(stream, kMoreRequests)) {
            ask(&decoder, stream, time);
        }
        step("end of effects", stream.index, {});
    }

    void use_in_background(const ff::StreamCtx& stream) {
        ff::FFDecoder decoder;
        step("open for the background", stream.index, {});
        (void)decoder.open(&stream);
        for (const ff::Rational& time : any_times(stream, kMoreRequests)) {
            step("in the background", stream.index, time);
            if (stream.type == ff::StreamType::Video) {
                decoder.getVideoFrameAsync(picture(stream, time), [](const auto&) {});
            } else {
                decoder.getAudioFrameAsync(span(time), [](const auto&) {});
            }
            ask(&decoder, stream, time);
            decoder.pri_seek(time, m_random.once_in(2));
        }
        step("close with requests in the background", stream.index, {});
    }

    void use_with_a_second_decoder(const ff::StreamCtx& stream) {
        ff::FFDecoder first;
        ff::FFDecoder second;
        step("open two", stream.index, {});
        (void)first.open(&stream);
        (void)second.open(&stream);
        for (const ff::Rational& time : any_times(stream, 2 * kMoreRequests)) {
            ask(m_random.once_in(2) ? &first : &second, stream, time);
            if (m_random.once_in(4)) {
                first.close();
                (void)first.reopen();
            }
        }
        step("close two", stream.index, {});
    }

    void ask_for_cover() {
        step("cover", -1, {});
        ff::RequireMvImage request;
        request.ratio = static_cast<double>(m_random.below(100)) / 100;
        request.max_width = 160;
        request.max_height = 120;
        ff::Rational duration{0, 1};
        take(ff::getMovieImage(m_path.c_str(), request, &duration).get());
    }

    const std::string& m_path;
    Random& m_random;
    Yield& m_yield;
};

}  // namespace

void use_damaged_file(const std::string& path, Random* random, Yield* yield) {
    FileUse(path, random, yield).run();
    (void)ff::mem_collection(0);
    (void)std::snprintf(yield->step, sizeof yield->step, "end");
}

}  // namespace fw_test
