#include "player.h"

#include <QFile>
#include <algorithm>

namespace {

constexpr qint64 kSecond = 1000000;

/// Returns how long a picture is shown, by the stream's average rate.
qint64 picture_length(const ff::StreamCtx& stream) {
    const ff::Rational rate = stream.frame_rate;
    return rate.num > 0 && rate.den > 0 ? kSecond * rate.den / rate.num : kSecond / 25;
}

}  // namespace

Player::Player(Listener* listener)
    : m_listener(listener),
      m_pictures(this, [this](const auto& picture, bool newest) { take_picture(picture, newest); }),
      m_levels(this, [this](double peak) { m_listener->show_level(peak); }) {
    m_timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_timer, &QTimer::timeout, this, [this] { tick(); });
}

QString Player::open(const QString& path) {
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(QFile::encodeName(path).constData());
    if (movie == nullptr) {
        return QStringLiteral("Cannot open %1").arg(path);
    }
    m_stream = ff::first_stream(movie, ff::StreamType::Video);
    if (m_stream == nullptr) {
        return QStringLiteral("There is no video in %1").arg(path);
    }
    if (!m_pictures.open(m_stream)) {
        return QStringLiteral("Cannot decode the video in %1").arg(path);
    }
    m_levels.open(ff::first_stream(movie, ff::StreamType::Audio));
    // INT64_MIN where a time is unknown.
    m_start = movie->start_time != INT64_MIN ? movie->start_time : 0;
    m_duration = std::max<qint64>(movie->duration, 0);
    const qint64 interval_ms = picture_length(*m_stream) / 1000;
    m_timer.setInterval(static_cast<int>(std::clamp<qint64>(interval_ms, 5, 100)));
    go_to(0);
    return {};
}

void Player::seek(qint64 position) {
    m_stepping = false;
    go_to(position);
    start_clock();
}

void Player::step(int direction) {
    set_playing(false);
    m_stepping = true;
    if (direction < 0) {
        // The picture before this one is what the movie shows just before this one begins.
        const ff::Rational tick = m_stream->time_base;
        go_to(m_picture_time - (kSecond * tick.num / tick.den + 1));
    } else {
        // Nobody knows when the next one begins. A quarter of a picture more than one, so that
        // times that are rounded to ticks do not fall short of it. Counted from the playhead where
        // that has moved on because the last step found the same picture again.
        const qint64 length = picture_length(*m_stream);
        go_to(std::max(m_position, m_picture_time) + length + length / 4);
    }
}

void Player::set_playing(bool playing) {
    if (playing && m_position == last_position()) {
        seek(m_duration - last_position());
    }
    m_stepping = false;
    start_clock();
    playing ? m_timer.start() : m_timer.stop();
    m_listener->show_state();
}

void Player::set_reverse(bool reverse) {
    if (can_reverse() && reverse != is_reverse()) {
        m_pictures.set_reverse(reverse);
        seek(m_position);
    }
}

void Player::go_to(qint64 position) {
    m_position = std::clamp<qint64>(position, 0, m_duration);
    m_pictures.ask(m_position);
    m_levels.ask(m_position);
    m_listener->show_state();
}

void Player::take_picture(const std::shared_ptr<ff::VFrameCtx>& picture, bool is_newest) {
    if (picture != nullptr) {
        const qint64 time = picture->pts - m_start;
        if (m_stepping && is_newest && time != m_picture_time) {
            m_position = std::clamp<qint64>(time, 0, m_duration);
        }
        m_picture_time = time;
    }
    m_listener->show_picture(picture);
    m_listener->show_state();
}

void Player::start_clock() {
    m_clock_from = m_position;
    m_clock.start();
}

void Player::tick() {
    const qint64 passed = m_clock.nsecsElapsed() / 1000;
    go_to(m_clock_from + (is_reverse() ? -passed : passed));
    if (m_position == last_position()) {
        set_playing(false);
    }
}
