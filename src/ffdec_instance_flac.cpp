#include "ffdec_instance_flac.h"

#include <cstring>

namespace ff {

namespace {

constexpr int kNumberOffset = 4;  // behind the sync code and what describes the samples
constexpr int kStreamInfoSize = 34;
constexpr int kNativeHeaderSize = 8;  // "fLaC" and the head of a metadata block

constexpr int kMaxNumberSize = 7;

/// How many bytes the number takes whose first byte is given: as many as it has leading ones, none
/// for one. More than kMaxNumberSize if no number begins so.
int number_size(unsigned first) {
    int ones = 0;
    while (ones < 8 && (first & (0x80U >> ones)) != 0) {
        ++ones;
    }
    if (ones == 1) {
        return kMaxNumberSize + 1;  // the inside of another number
    }
    return ones == 0 ? 1 : ones;
}

/// The number of a frame or sample, coded like a character in UTF-8 but up to 36 bits long; -1 if
/// it is broken.
std::int64_t coded_number(const std::uint8_t* bytes, int available) {
    const int size = available > 0 ? number_size(bytes[0]) : kMaxNumberSize + 1;
    if (size > kMaxNumberSize || size > available) {
        return -1;
    }
    std::uint64_t number = size == 1 ? bytes[0] : bytes[0] & (0x7FU >> size);
    for (int i = 1; i < size; ++i) {
        if ((bytes[i] & 0xC0U) != 0x80) {
            return -1;
        }
        number = number << 6U | (bytes[i] & 0x3FU);
    }
    return static_cast<std::int64_t>(number);
}

/// Samples per frame of a stream whose frames are all of one size; -1 if that is not known.
int fixed_block_size(const AVCodecParameters& parameters) {
    const std::uint8_t* info = parameters.extradata;
    int size = parameters.extradata_size;
    if (info != nullptr && size >= kNativeHeaderSize && std::memcmp(info, "fLaC", 4) == 0) {
        info += kNativeHeaderSize;
        size -= kNativeHeaderSize;
    }
    if (info == nullptr || size < kStreamInfoSize) {
        return -1;
    }
    const int smallest = info[0] << 8 | info[1];
    const int largest = info[2] << 8 | info[3];
    return smallest == largest ? smallest : -1;
}

}  // namespace

std::int64_t flac_frame_start(const AVPacket& packet, const AVCodecParameters& parameters) {
    const std::uint8_t* const bytes = packet.data;
    if (bytes == nullptr || packet.size <= kNumberOffset || bytes[0] != 0xFF ||
        (bytes[1] & 0xFEU) != 0xF8) {
        return -1;
    }
    const std::int64_t number = coded_number(bytes + kNumberOffset, packet.size - kNumberOffset);
    const bool counts_samples = (bytes[1] & 1U) != 0;
    if (number < 0 || counts_samples) {
        return number;
    }
    const int block_size = fixed_block_size(parameters);
    return block_size > 0 ? number * block_size : -1;  // of 36 and 16 bits
}

void FlacClock::start(const AVFormatContext& format, const AVStream& stream) {
    *this = FlacClock();
    if (stream.codecpar->codec_id == AV_CODEC_ID_FLAC && stream.codecpar->sample_rate > 0 &&
        std::strcmp(format.iformat->name, "ogg") == 0) {
        m_parameters = stream.codecpar;
        m_time_base = stream.time_base;
    }
}

void FlacClock::correct(AVPacket* packet) {
    if (!is_running()) {
        return;
    }
    const std::int64_t start = flac_frame_start(*packet, *m_parameters);
    if (start < 0) {
        return;
    }
    const std::int64_t elapsed = av_rescale_q(start, {1, m_parameters->sample_rate}, m_time_base);
    if (m_origin == AV_NOPTS_VALUE) {
        if (packet->pts == AV_NOPTS_VALUE ||
            __builtin_sub_overflow(packet->pts, elapsed, &m_origin)) {
            m_parameters = nullptr;  // nothing to count from
        }
        return;
    }
    std::int64_t time = 0;
    if (!__builtin_add_overflow(m_origin, elapsed, &time)) {
        packet->pts = time;
        packet->dts = time;
    }
}

}  // namespace ff
