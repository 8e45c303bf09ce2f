#include "ffdec_instance_jitter.h"

#include "base/log.h"

#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdec_instance";

/// Adds as a wrapping sum: the times of broken streams may lie anywhere.
std::int64_t add_wrapped(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t times_wrapped(std::size_t n, std::int64_t d) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(n) * static_cast<std::uint64_t>(d));
}

void set_time(AVFrame* frame, std::int64_t time) {
    frame->pts = time;
    frame->best_effort_timestamp = time;
}

std::size_t data_bytes(const AVFrame& frame) {
    std::size_t bytes = 0;
    for (const AVBufferRef* buffer : frame.buf) {
        bytes += buffer != nullptr ? static_cast<std::size_t>(buffer->size) : 0;
    }
    return bytes;
}

/// Moves the contents of `frame` into a new shared frame.
std::shared_ptr<AVFrame> move_to_shared(AVFrame* frame) {
    std::shared_ptr<AVFrame> shared = create_avframe_ptr(av_frame_alloc());
    if (shared) {
        av_frame_move_ref(shared.get(), frame);
    }
    return shared;
}

}  // namespace

AVFrame* FrameJitter::put(AVFrame* frame) {
    if (frame->buf[0] == nullptr) {
        return nullptr;  // nothing was decoded: an error or the end, which must not become a frame
    }
    if (frame->pts == AV_NOPTS_VALUE) {
        if (frame->best_effort_timestamp == AV_NOPTS_VALUE) {
            hold(frame);
            return m_held_bytes > kMaxHeldBytes && release_oldest(frame) ? frame : nullptr;
        }
        frame->pts = frame->best_effort_timestamp;
    }
    note_time(*frame);
    if (!m_frames.empty()) {
        caculate_pts_and_replace(frame, m_frames);
        m_held_bytes = 0;
    }
    return frame;
}

void FrameJitter::caculate_pts_and_replace(AVFrame* frame,
                                           std::list<std::shared_ptr<AVFrame>>& frames) {
    if (frames.empty()) {
        return;
    }
    const std::int64_t step = compat::frame_duration(*frame);
    std::int64_t time = add_wrapped(frame->pts, times_wrapped(frames.size(), -step));
    for (const std::shared_ptr<AVFrame>& held : frames) {
        set_time(held.get(), time);
        time = add_wrapped(time, step);
    }
    std::shared_ptr<AVFrame> current = move_to_shared(frame);
    if (current) {
        frames.push_back(std::move(current));
    }
    const std::shared_ptr<AVFrame> oldest = std::move(frames.front());
    frames.pop_front();
    av_frame_unref(frame);
    av_frame_move_ref(frame, oldest.get());
}

bool FrameJitter::take_ready(AVFrame* frame) {
    if (m_frames.empty() || m_frames.front()->pts == AV_NOPTS_VALUE) {
        return false;
    }
    const std::shared_ptr<AVFrame> oldest = std::move(m_frames.front());
    m_frames.pop_front();
    av_frame_move_ref(frame, oldest.get());
    return true;
}

void FrameJitter::finish() {
    if (m_next_time == AV_NOPTS_VALUE) {
        m_frames.remove_if([](const auto& held) { return held->pts == AV_NOPTS_VALUE; });
    }
    for (const std::shared_ptr<AVFrame>& held : m_frames) {
        if (held->pts == AV_NOPTS_VALUE) {
            stamp_from_last_known(held.get());
        }
    }
    m_held_bytes = 0;
}

/// Makes room: the oldest held frame goes on with a time counted from the last known one, or is
/// dropped where no time is known. True if `frame` now holds it.
bool FrameJitter::release_oldest(AVFrame* frame) {
    if (m_next_time != AV_NOPTS_VALUE) {
        stamp_from_last_known(m_frames.front().get());
        return take_ready(frame);
    }
    const std::size_t bytes = data_bytes(*m_frames.front());
    m_held_bytes -= bytes < m_held_bytes ? bytes : m_held_bytes;
    m_frames.pop_front();
    return false;
}

void FrameJitter::reset(std::int64_t next_time) {
    m_frames.clear();
    m_held_bytes = 0;
    m_next_time = next_time;
}

void FrameJitter::swap(FrameJitter& other) noexcept {
    std::swap(m_frames, other.m_frames);
    std::swap(m_name, other.m_name);
    std::swap(m_held_bytes, other.m_held_bytes);
    std::swap(m_next_time, other.m_next_time);
    std::swap(m_frame_step, other.m_frame_step);
}

void FrameJitter::hold(AVFrame* frame) {
    std::shared_ptr<AVFrame> held = move_to_shared(frame);
    if (!held) {
        av_frame_unref(frame);
        return;
    }
    m_held_bytes += data_bytes(*held);
    m_frames.push_back(std::move(held));
    if (m_frames.size() >= kManyFrames) {
        FW_LOG(2, "bg", "Pts lost... Jitter['%s'] cached more frames, n=%d", m_name.c_str(),
               static_cast<int>(m_frames.size()));
    }
}

void FrameJitter::note_time(const AVFrame& frame) {
    const std::int64_t duration = compat::frame_duration(frame);
    m_next_time = add_wrapped(frame.pts, duration > 0 ? duration : m_frame_step);
}

void FrameJitter::stamp_from_last_known(AVFrame* frame) {
    const std::size_t bytes = data_bytes(*frame);
    m_held_bytes -= bytes < m_held_bytes ? bytes : m_held_bytes;
    set_time(frame, m_next_time);
    note_time(*frame);
}

}  // namespace ff
