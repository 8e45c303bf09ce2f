#pragma once

#include "ffmpeg_facts.h"
#include "progress.h"
#include "verify_report.h"

#include <framewell/ffdecoder.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

/// How the places of pictures are counted, so that each can be asked for exactly: in ticks of the
/// stream, or in microseconds, in which results tell their times, where ticks are finer than that.
class PictureScale {
public:
    explicit PictureScale(const ff::StreamCtx& stream);

    /// The place of a picture by its time in the file.
    std::int64_t place_of(std::int64_t pts_us) const;

    /// The time from the movie's start that means what is shown at `place`.
    ff::Rational request_time(std::int64_t place) const;

    /// The last place that is certainly in front of `place` when it is asked for.
    std::int64_t just_before(std::int64_t place) const { return place - 1 - m_nudge; }

    double seconds(std::int64_t place) const;

    /// The number of places in a time, at least 1.
    std::int64_t places(const ff::Rational& time) const;

private:
    ff::Rational m_unit{1, 1000000};
    std::int64_t m_nudge = 0;  // places by which a request asks later, see the constructor
    std::int64_t m_start_us = 0;
};

/// One answer of the library.
struct SeenPicture {
    std::int64_t place = 0;
    std::int64_t pts_us = 0;
    Fingerprint print{};
};

/// One picture of a stream as the walk through it found it.
struct WalkedPicture {
    std::int64_t place = 0;
    std::int64_t until = 0;  ///< where the next one starts
    std::int64_t pts_us = 0;
    Fingerprint print{};
};

/// Asks one decoder for pictures of one stream.
class PictureAsker {
public:
    explicit PictureAsker(const ff::StreamCtx& stream);

    /// False if the stream cannot be decoded.
    bool open() { return m_decoder.open(&m_stream); }

    /// What is shown at `place`; nothing if there is no answer, also after an interrupt.
    std::optional<SeenPicture> ask(std::int64_t place);

    const PictureScale& scale() const { return m_scale; }

private:
    const ff::StreamCtx& m_stream;
    PictureScale m_scale;
    ff::PixelFormat m_format;
    ff::FFDecoder m_decoder;
};

/// Finds every picture of a stream, from the first to the last, and remembers them; every second,
/// fourth ... of a long stream.
class PictureWalk {
public:
    PictureWalk(const ff::StreamCtx& stream, SharedVerdict* verdict, Progress* progress);

    void run();

    /// The pictures that are remembered, in order.
    const std::vector<WalkedPicture>& pictures() const { return m_pictures; }

private:
    bool find_first();
    bool find_next();
    bool reach(const SeenPicture& later);
    bool is_over(std::int64_t asked);
    void accept(const SeenPicture& seen);
    void remember();
    void show_progress();
    std::int64_t known_end() const;

    const ff::StreamCtx& m_stream;
    SharedVerdict& m_verdict;
    Progress& m_progress;
    PictureAsker m_asker;
    std::vector<WalkedPicture> m_pictures;
    WalkedPicture m_current;
    std::int64_t m_doubted = -1;  // the picture that was taken for the last one, place
    std::int64_t m_seen = 0;
    std::int64_t m_stride = 1;  // every so many are remembered
    std::int64_t m_gap = 1;     // between the last two pictures, in places
};

}  // namespace tool
