#pragma once

/// @file
/// The measure of exactness: a stream's pictures as a reference decode lists them, questions about
/// times in random order, and the differences between the answers and that list.

#include "tests/support/media.h"
#include "tests/support/sanitized.h"

#include <framewell/ffdecoder.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace fw_test {

/// One picture of a list to compare with. Times are ticks.
struct ListedPicture {
    std::int64_t number = 0;  ///< position in presentation order, from 0
    std::int64_t time = 0;
    std::string md5;  ///< in the stream's own pixel format
};

/// What is shown from one time on.
struct Shown {
    std::int64_t from = 0;
    std::int64_t until = 0;         ///< when the next picture starts; `from` if that is not listed
    std::vector<std::string> md5s;  ///< several where pictures share their time: any may answer
};

/// The pictures of one stream by time, and what it costs to get at them.
struct Timeline {
    std::vector<Shown> shown;  ///< by time; from the first picture to the last, perhaps with gaps
    std::string pix_fmt;       ///< of the md5s
    int width = 0;
    int height = 0;
    double pictures_per_key = 1;
};

/// A time to ask for, and the position in `Timeline::shown` of what is to be shown then.
struct Question {
    ff::Rational time;  ///< seconds from the movie's start
    std::size_t shown = 0;
};

/// Orders pictures by time, those of one time together.
inline std::vector<Shown> in_order_of_time(std::vector<ListedPicture> pictures) {
    std::stable_sort(
        pictures.begin(), pictures.end(),
        [](const ListedPicture& a, const ListedPicture& b) { return a.time < b.time; });
    std::vector<Shown> shown;
    std::int64_t last_number = -1;
    for (const ListedPicture& picture : pictures) {
        if (shown.empty() || shown.back().from != picture.time) {
            if (!shown.empty() && picture.number == last_number + 1) {
                shown.back().until = picture.time;
            }
            shown.push_back({picture.time, picture.time, {}});
        }
        shown.back().md5s.push_back(picture.md5);
        last_number = std::max(last_number, picture.number);
    }
    return shown;
}

/// Returns the time of a tick, and of `thirds` thirds of a tick more, from the movie's start.
inline ff::Rational movie_time(const ff::StreamCtx& stream, std::int64_t tick, int thirds = 0) {
    const ff::Rational third{stream.time_base.num, stream.time_base.den * 3};
    const ff::Rational in_file = ff::timestamp_to_time(tick * 3 + thirds, third);
    if (stream.movie->start_time == INT64_MIN) {
        return in_file;
    }
    return in_file - ff::timestamp_to_time(stream.movie->start_time, {1, 1000000});
}

/// The format in which pictures can be asked for without a loss; None if there is no such.
inline ff::PixelFormat lossless_format(const std::string& pix_fmt) {
    if (pix_fmt == "yuv420p") {
        return ff::PixelFormat::Yuv420p;
    }
    const bool is_rgb = pix_fmt == "rgba" || pix_fmt == "bgra" || pix_fmt == "rgb24";
    return is_rgb ? ff::PixelFormat::Rgba : ff::PixelFormat::None;
}

/// Returns the rows of a packed picture in the order of bytes that `pix_fmt` has.
inline std::string packed_bytes(const ff::VFrameCtx& rgba, const std::string& pix_fmt) {
    std::string bytes;
    for (int y = 0; y < rgba.height; y++) {
        const auto* row = reinterpret_cast<const char*>(rgba.data[0]) +
                          static_cast<std::ptrdiff_t>(y) * rgba.linesize[0];
        for (int x = 0; x < rgba.width; x++, row += 4) {
            if (pix_fmt == "bgra") {
                bytes += {row[2], row[1], row[0], row[3]};
            } else {
                bytes.append(row, pix_fmt == "rgb24" ? 3 : 4);
            }
        }
    }
    return bytes;
}

/// Returns the rows of a yuv420p picture, without padding.
inline std::string planar_bytes(const ff::VFrameCtx& yuv) {
    std::string bytes;
    for (int plane = 0; plane < 3; plane++) {
        const int halved = plane == 0 ? 0 : 1;
        const int width = (yuv.width + halved) >> halved;
        const int height = (yuv.height + halved) >> halved;
        for (int y = 0; y < height; y++) {
            bytes.append(reinterpret_cast<const char*>(yuv.data[plane]) +
                             static_cast<std::ptrdiff_t>(y) * yuv.linesize[plane],
                         static_cast<std::size_t>(width));
        }
    }
    return bytes;
}

inline ff::RequireVideoFrame request_for(const ff::Rational& time, const std::string& pix_fmt) {
    ff::RequireVideoFrame request;
    request.time = time;
    request.format = lossless_format(pix_fmt) == ff::PixelFormat::Rgba ? ff::PixelFormat::Rgba
                                                                       : ff::PixelFormat::Yuv420p;
    return request;
}

inline std::string md5_of(const ff::VFrameCtx& picture, const std::string& pix_fmt) {
    const std::string bytes = lossless_format(pix_fmt) == ff::PixelFormat::Rgba
                                  ? packed_bytes(picture, pix_fmt)
                                  : planar_bytes(picture);
    return md5_hex(bytes.data(), bytes.size());
}

/// Where pictures cannot be had without a loss, puts the md5s of the converted pictures into the
/// timeline, as a decoder gives them that is asked for one after the other, in order: what comes in
/// random order is then compared with that.
inline void expect_what_comes_in_order(Timeline* timeline, const ff::StreamCtx& stream) {
    if (lossless_format(timeline->pix_fmt) != ff::PixelFormat::None) {
        return;
    }
    ff::FFDecoder decoder;
    (void)decoder.open(&stream);  // the pictures that are missing else say so
    for (Shown& shown : timeline->shown) {
        const auto picture =
            decoder.getVideoFrame(request_for(movie_time(stream, shown.from), timeline->pix_fmt));
        shown.md5s = {picture ? md5_of(*picture, timeline->pix_fmt) : "none"};
    }
}

/// How many pictures to ask for: less where the pictures are large and key pictures far apart, so
/// that each stream costs about as much. All with the environment variable FRAMEWELL_EXACTNESS_ALL.
inline std::size_t affordable_questions(const Timeline& timeline) {
    if (std::getenv("FRAMEWELL_EXACTNESS_ALL") != nullptr) {
        return timeline.shown.size();
    }
    constexpr double kPixels = 4e7;  // decoded in less than half a second
    const double pixels_per_question =
        1.0 * timeline.width * timeline.height * (timeline.pictures_per_key / 2 + 1);
    const double affordable = kPixels / std::max(1.0, pixels_per_question);
    return static_cast<std::size_t>(kSanitized ? std::clamp(affordable / 8, 4.0, 8.0)
                                               : std::clamp(affordable, 8.0, 24.0));
}

/// One of several askers, who share what is asked about the ends of a stream.
struct Share {
    std::size_t number = 0;
    std::size_t of = 1;

    bool has(std::size_t at) const { return at % of == number; }
};

/// Makes up questions about one stream. Equal shares give equal questions.
class Questioner {
public:
    Questioner(const Timeline& timeline, const ff::StreamCtx& stream, Share share)
        : m_timeline(timeline),
          m_stream(stream),
          m_share(share),
          m_random(static_cast<unsigned>(1 + share.number)) {}

    /// Returns questions in random order: the starts of pictures (each once if `pictures` is their
    /// number), after each of them a time nearby, and times before the first picture and after the
    /// last. Near ones are what a host asks that plays or steps; they are answered by decoding on,
    /// or from what is remembered.
    std::vector<Question> ask_for(std::size_t pictures) {
        std::vector<std::size_t> order(m_timeline.shown.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::shuffle(order.begin(), order.end(), m_random);
        order.resize(std::min(order.size(), pictures));
        std::vector<Question> questions;
        for (const std::size_t at : order) {
            questions.push_back({movie_time(m_stream, m_timeline.shown[at].from), at});
            questions.push_back(within(neighbour(at)));
        }
        const std::vector<Question> outside_times = outside();
        for (std::size_t i = m_share.number; i < outside_times.size(); i += m_share.of) {
            const Question& question = outside_times[i];
            const auto place = below(static_cast<int>(questions.size()) + 1);
            questions.insert(questions.begin() + place, question);
        }
        // The last pictures, each from afar: a decoder hands them out when the file has ended, and
        // may then not say which of them are damaged by having begun in the middle.
        const std::size_t end = m_timeline.shown.size();
        for (std::size_t at = end - std::min<std::size_t>(end, 4); at < end; at++) {
            if (!m_share.has(at)) {
                continue;
            }
            questions.push_back({movie_time(m_stream, m_timeline.shown[0].from), 0});
            questions.push_back({movie_time(m_stream, m_timeline.shown[at].from), at});
        }
        return questions;
    }

private:
    int below(int end) { return static_cast<int>(m_random() % static_cast<unsigned>(end)); }

    std::size_t neighbour(std::size_t at) {
        const auto moved = static_cast<std::int64_t>(at) + below(25) - 12;
        const auto last = static_cast<std::int64_t>(m_timeline.shown.size()) - 1;
        return static_cast<std::size_t>(std::clamp<std::int64_t>(moved, 0, last));
    }

    /// A time at which the picture is shown: near its start, in its middle, at its last tick.
    Question within(std::size_t at) {
        const Shown& shown = m_timeline.shown[at];
        const std::int64_t length = std::max<std::int64_t>(shown.until - shown.from, 1);
        switch (below(3)) {
            case 0:
                return {movie_time(m_stream, shown.from, 1), at};
            case 1:
                return {movie_time(m_stream, shown.from + length / 2), at};
            default:
                return {movie_time(m_stream, shown.from + length - 1), at};
        }
    }

    /// Times just before the first picture and long before it, just after the last one's start and
    /// long after.
    std::vector<Question> outside() {
        const std::int64_t ten_seconds =
            10 * std::max<std::int64_t>(1, m_stream.time_base.den / m_stream.time_base.num);
        const std::size_t last = m_timeline.shown.size() - 1;
        const std::int64_t begin = m_timeline.shown[0].from;
        const std::int64_t end = m_timeline.shown[last].from;
        return {{movie_time(m_stream, begin - 1), 0},
                {movie_time(m_stream, begin - ten_seconds), 0},
                {movie_time(m_stream, end + 1), last},
                {movie_time(m_stream, end + ten_seconds), last}};
    }

    const Timeline& m_timeline;
    const ff::StreamCtx& m_stream;
    const Share m_share;
    std::mt19937 m_random;
};

/// Asks, and returns a line for every answer that is not what the timeline says.
inline std::vector<std::string> differences(ff::FFDecoder* decoder, const Timeline& timeline,
                                            const std::vector<Question>& questions) {
    std::vector<std::string> lines;
    const ff::StreamCtx& stream = *decoder->streamContex();
    for (const Question& question : questions) {
        const Shown& shown = timeline.shown[question.shown];
        const std::string asked = "time " + std::to_string(question.time.num) + "/" +
                                  std::to_string(question.time.den) + ", picture at tick " +
                                  std::to_string(shown.from) + ": ";
        const auto picture = decoder->getVideoFrame(request_for(question.time, timeline.pix_fmt));
        const auto expected = ff::rescale_q(shown.from, stream.time_base, {1, 1000000});
        if (!picture) {
            lines.push_back(asked + "no picture");
        } else if (picture->pts != expected) {
            lines.push_back(asked + std::to_string(expected) + " us expected, " +
                            std::to_string(picture->pts) + " us came");
        } else if (picture->width != timeline.width || picture->height != timeline.height) {
            lines.push_back(asked + "size " + std::to_string(picture->width) + "x" +
                            std::to_string(picture->height));
        } else if (std::count(shown.md5s.begin(), shown.md5s.end(),
                              md5_of(*picture, timeline.pix_fmt)) == 0) {
            lines.push_back(asked + "other pixels");
        }
    }
    return lines;
}

/// Who asks.
enum class Askers { OneDecoder, FourDecoders, FourThreadsOfOneDecoder };

/// Asks in one of the three ways; one thread per decoder or four. Returns what differed.
inline std::vector<std::string> differences(const Timeline& timeline, const ff::StreamCtx& stream,
                                            Askers askers) {
    const std::size_t threads = askers == Askers::OneDecoder ? 1 : 4;
    const std::size_t pictures = affordable_questions(timeline);
    const auto shared = std::make_unique<ff::FFDecoder>();
    if (!shared->open(&stream)) {
        return {"the stream cannot be opened"};
    }
    std::vector<std::vector<std::string>> found(threads);
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; i++) {
        running.emplace_back([&, i] {
            Questioner questioner(timeline, stream, {i, threads});
            const auto questions = questioner.ask_for((pictures + threads - 1) / threads);
            ff::FFDecoder own;
            const bool uses_own = askers == Askers::FourDecoders && own.open(&stream);
            found[i] = differences(uses_own ? &own : shared.get(), timeline, questions);
        });
    }
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < threads; i++) {
        running[i].join();
        lines.insert(lines.end(), found[i].begin(), found[i].end());
    }
    return lines;
}

/// The first lines, for a message.
inline std::string first_of(const std::vector<std::string>& lines) {
    std::string text = std::to_string(lines.size()) + " answers differ";
    for (std::size_t i = 0; i < std::min<std::size_t>(lines.size(), 12); i++) {
        text += "\n  " + lines[i];
    }
    return text;
}

}  // namespace fw_test
