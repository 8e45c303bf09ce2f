#pragma once

#include "media/ff_compat.h"

#include <cstdint>

namespace ff {

/// The first sample of the FLAC frame in a packet, counted from the start of the recording, as the
/// frame's own header says (RFC 9639, chapter 9.1); -1 if it does not say.
std::int64_t flac_frame_start(const AVPacket& packet, const AVCodecParameters& parameters);

/// Sets the times of FLAC packets in Ogg right. After a seek the demuxer counts from the end of a
/// page that it has not read through, and its packets are late by a few frames (5.1); the frames
/// themselves know where they belong.
class FlacClock {
public:
    /// To be called when a file has been opened, before anything is read.
    void start(const AVFormatContext& format, const AVStream& stream);

    bool is_running() const { return m_parameters != nullptr; }

    /// For each packet of the stream. The first one, which must come before any seek, is believed.
    void correct(AVPacket* packet);

private:
    const AVCodecParameters* m_parameters = nullptr;  // the stream's; null where nothing is wrong
    AVRational m_time_base{0, 1};
    std::int64_t m_origin = AV_NOPTS_VALUE;  // the time of sample 0, ticks
};

}  // namespace ff
