#include "picture_walk.h"

#include "interrupt.h"
#include "media_file.h"
#include "output.h"

#include <algorithm>
#include <limits>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

// Pictures to remember: 20 MiB. Of longer streams every second is dropped, again and again.
constexpr std::size_t kMostRemembered = std::size_t{1} << 18;

double in_seconds(const ff::Rational& time) {
    return time.den == 0 ? 0 : static_cast<double>(time.num) / static_cast<double>(time.den);
}

}  // namespace

// Results tell their time in microseconds. Where a tick is no shorter, that gives the tick back.
// Else the time may be cut by up to half a microsecond, so a picture is asked for a whole one
// later.
PictureScale::PictureScale(const ff::StreamCtx& stream)
    : m_start_us(movie_start_us(*stream.movie)) {
    const ff::Rational tick = stream.time_base;
    if (tick.num > 0 && tick.den > 0 && tick.den / tick.num <= 1000000) {
        m_unit = tick;
    } else {
        m_nudge = 1;
    }
}

std::int64_t PictureScale::place_of(std::int64_t pts_us) const {
    return ff::rescale_q(pts_us, {1, 1000000}, m_unit);
}

ff::Rational PictureScale::request_time(std::int64_t place) const {
    return ff::timestamp_to_time(place + m_nudge, m_unit) -
           ff::timestamp_to_time(m_start_us, {1, 1000000});
}

double PictureScale::seconds(std::int64_t place) const {
    return in_seconds(request_time(place));
}

std::int64_t PictureScale::places(const ff::Rational& time) const {
    return std::max<std::int64_t>(1, ff::time_to_timestamp(time, m_unit));
}

PictureAsker::PictureAsker(const ff::StreamCtx& stream)
    : m_stream(stream), m_scale(stream), m_format(richest_format(stream.pix_fmt)) {}

std::optional<SeenPicture> PictureAsker::ask(std::int64_t place) {
    ff::RequireVideoFrame request;
    request.time = m_scale.request_time(place);
    request.format = m_format;
    request.abort_flag = &interrupt_flag();
    const std::shared_ptr<ff::VFrameCtx> picture = m_decoder.getVideoFrame(request);
    if (picture == nullptr) {
        return std::nullopt;
    }
    return SeenPicture{m_scale.place_of(picture->pts), picture->pts,
                       fingerprint(visible_bytes(*picture))};
}

PictureWalk::PictureWalk(const ff::StreamCtx& stream, SharedVerdict* verdict, Progress* progress)
    : m_stream(stream), m_verdict(*verdict), m_progress(*progress), m_asker(stream) {}

void PictureWalk::run() {
    if (m_asker.open() && find_first()) {
        while (!m_stream.single_frame && find_next()) {
            show_progress();
        }
        remember();
    }
    m_verdict.change([&](Verdict& verdict) {
        verdict.seen = m_seen;
        verdict.is_usable = m_seen > 0 || is_interrupted();
    });
}

bool PictureWalk::find_first() {
    const PictureScale& scale = m_asker.scale();
    const ff::Rational rate = m_stream.frame_rate;
    const bool has_rate = rate.num > 0 && rate.den > 0;
    m_gap = scale.places(has_rate ? ff::Rational{rate.den, rate.num} : ff::Rational{1, 25});
    std::optional<SeenPicture> seen = m_asker.ask(
        m_stream.start_time == kUnknown
            ? 0
            : scale.place_of(ff::rescale_q(m_stream.start_time, m_stream.time_base, {1, 1000000})));
    if (!seen) {
        return false;
    }
    m_current.place = kUnknown;
    return reach(*seen);
}

/// Goes on to the next picture. False: there is none.
bool PictureWalk::find_next() {
    std::int64_t ahead = m_gap;
    const std::int64_t second = m_asker.scale().places({1, 1});
    for (;;) {
        const std::int64_t place = m_current.place + ahead;
        const std::optional<SeenPicture> seen = m_asker.ask(place);
        if (is_interrupted()) {
            return false;
        }
        if (!seen || seen->place < m_current.place) {
            m_verdict.count(Way::InOrder, m_asker.scale().seconds(place),
                            seen ? "an earlier picture than before" : "no picture");
            return false;
        }
        if (seen->place > m_current.place) {
            return reach(*seen);
        }
        if (is_over(place)) {
            return false;
        }
        // No further than a decoder goes on by itself: it would seek.
        ahead += std::min(ahead, second);
    }
}

/// Whether nothing comes after the current picture, which is still shown at `asked`. Durations may
/// be wrong either way: what is shown long after the end is the last picture.
bool PictureWalk::is_over(std::int64_t asked) {
    const std::int64_t second = m_asker.scale().places({1, 1});
    const std::int64_t end = std::max(m_current.place, known_end());
    // The question costs a seek each way, so it comes once before the end, and then at the end.
    const bool is_long_shown =
        asked >= m_current.place + 5 * second && m_doubted != m_current.place;
    if (!is_long_shown && asked < end + 5 * second) {
        return false;
    }
    m_doubted = m_current.place;
    const std::optional<SeenPicture> last = m_asker.ask(std::max(asked, end) + 1000000 * second);
    return is_interrupted() || !last || last->place == m_current.place;
}

/// Accepts the pictures after the current one up to and with `later`: what is shown just before a
/// picture starts is the one in front of it.
bool PictureWalk::reach(const SeenPicture& later) {
    std::vector<SeenPicture> found{later};
    while (!is_interrupted()) {
        const std::optional<SeenPicture> before =
            m_asker.ask(m_asker.scale().just_before(found.back().place));
        if (!before) {
            break;
        }
        if (before->place == m_current.place) {
            break;
        }
        if (before->place >= found.back().place || before->place < m_current.place) {
            break;  // nothing comes before the first picture, which then answers itself
        }
        found.push_back(*before);
    }
    if (is_interrupted()) {
        return false;
    }
    for (auto seen = found.rbegin(); seen != found.rend(); ++seen) {
        accept(*seen);
    }
    return true;
}

void PictureWalk::accept(const SeenPicture& seen) {
    if (m_seen > 0) {
        m_current.until = seen.place;
        m_gap = seen.place - m_current.place;
        remember();
    }
    m_gap = std::min(m_gap, m_asker.scale().places({1, 1}));
    ++m_seen;
    m_current = {seen.place, seen.place + m_gap, seen.pts_us, seen.print};
}

/// Takes the current picture, which is complete now, into the list.
void PictureWalk::remember() {
    if ((m_seen - 1) % m_stride != 0) {
        return;
    }
    m_pictures.push_back(m_current);
    if (m_pictures.size() < kMostRemembered) {
        return;
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < m_pictures.size(); i += 2) {
        m_pictures[kept++] = m_pictures[i];
    }
    m_pictures.resize(kept);
    m_stride *= 2;
}

/// Where the stream ends as far as the file says.
std::int64_t PictureWalk::known_end() const {
    if (m_stream.duration == kUnknown) {
        return m_current.place;
    }
    const std::int64_t start = m_stream.start_time == kUnknown ? 0 : m_stream.start_time;
    std::int64_t end = 0;
    if (__builtin_add_overflow(start, m_stream.duration, &end)) {
        return m_current.place;
    }
    return m_asker.scale().place_of(ff::rescale_q(end, m_stream.time_base, {1, 1000000}));
}

void PictureWalk::show_progress() {
    const double length = m_asker.scale().seconds(known_end());
    const double fraction = length > 0 ? m_asker.scale().seconds(m_current.place) / length : -1;
    m_progress.show(fraction,
                    stream_name(m_stream) + ", in order: " + std::to_string(m_seen) + " pictures");
}

}  // namespace tool
