#pragma once

#include "media/ff_handles.h"

#include <framewell/media/stream.h>

#include <array>
#include <cstdint>
#include <memory>

namespace ff {

/// The layout `mask`, or the usual one of that many channels where none is known: filters and
/// resamplers want one.
std::uint64_t known_layout(std::uint64_t mask, int channels);

/// A frame whose memory serves for one span after the other, since asking for it anew costs more
/// than filling it.
///
/// Thread-safety: one thread at a time.
class ReusedFrame {
public:
    /// A frame in the form that `stream` announces, with room for `nb_samples`; what its samples
    /// are is not defined. The one that was given last is used again unless somebody, a filter say,
    /// still holds it or its buffers. Empty if there is no memory.
    std::shared_ptr<AVFrame> take(const StreamCtx& stream, int nb_samples);

    void reset() { m_frame.reset(); }

private:
    bool fits(const StreamCtx& stream, int nb_samples) const;

    std::shared_ptr<AVFrame> m_frame;
    int m_room = 0;  // samples per channel
};

/// Brings frames to the form that their stream announces. What a stream announces may change on the
/// way (a broadcast) or never have been true, and who collects samples needs them all alike.
///
/// Thread-safety: one thread at a time.
class FrameRefitter {
public:
    /// Up to two frames, in order: what was still held back of frames in another form, and `frame`
    /// itself, unchanged if it has the announced form. One that cannot be converted is dropped
    /// (logged under `tag`).
    std::array<std::shared_ptr<AVFrame>, 2> fit(const StreamCtx& stream,
                                                const std::shared_ptr<AVFrame>& frame,
                                                const char* tag);

    /// What is held back of frames in another form, once no more of them come. Empty if nothing.
    std::shared_ptr<AVFrame> take_rest(const StreamCtx& stream);

    /// Forgets what is held back.
    void reset() { m_swr.reset(); }

private:
    void prepare(const StreamCtx& stream, const compat::AudioShape& in);
    int convert(const StreamCtx& stream, const AVFrame* frame, std::shared_ptr<AVFrame>* result);

    SwrPtr m_swr;                     // null while frames have the announced form
    compat::AudioShape m_shape_in{};  // what m_swr takes
};

}  // namespace ff
