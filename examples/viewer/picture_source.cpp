#include "picture_source.h"

#include "answer.h"

#include <algorithm>
#include <utility>

PictureSource::PictureSource(QObject* receiver, Handler handler)
    : m_receiver(receiver), m_handler(std::move(handler)) {}

PictureSource::~PictureSource() {
    m_decoder.close();  // waits until no callback runs: after it nobody posts to the receiver
}

bool PictureSource::open(const ff::StreamCtx* stream) {
    // An unknown duration is INT64_MIN, and nothing can be counted back from it.
    m_end = ff::timestamp_to_time(std::max<long long>(stream->duration, 0), stream->time_base);
    return m_decoder.open(stream);
}

void PictureSource::ask(qint64 time) {
    ff::RequireVideoFrame request;
    request.time = {time, 1000000};
    if (m_reverse) {
        request.time = m_end - request.time;  // the decoder counts from the end of the movie
    }
    request.divider = m_decoder.getImageDivider(ff::MemoryMode::ByResolution);
    m_request++;
    m_waiting++;
    m_decoder.getVideoFrameAsync(
        request, posted<ff::VFrameCtx>(m_receiver, [this, number = m_request](const auto& picture) {
            take(number, picture);
        }));
}

void PictureSource::set_reverse(bool reverse) {
    m_reverse = reverse;
    m_decoder.setRevert(reverse);
    m_first_valid = m_request + 1;
}

void PictureSource::take(int request, const std::shared_ptr<ff::VFrameCtx>& picture) {
    m_waiting--;
    // While the playhead is dragged, pictures come late. Each is shown, or the window would stand
    // still until the hand does; only of the newest request it matters that there is none.
    const bool is_newest = request == m_request;
    if (is_newest || (picture != nullptr && request >= m_first_valid)) {
        m_handler(picture, is_newest);
    }
}
