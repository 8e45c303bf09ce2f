#pragma once

#include "ffdec_instance_flac.h"
#include "ffdec_instance_jitter.h"
#include "media/ff_handles.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace ff {

/// One demuxer and one decoder over one file and one stream of it: reads, decodes, repairs lost
/// timestamps and seeks. The lowest layer of decoding; each worker owns one.
///
/// After a seek into the middle of a stream only pictures that can be decoded exactly come out:
/// packets before the first key frame are skipped, and so are the pictures that follow that key
/// frame in the file but lie before it in time, since they may refer to pictures before the seek.
/// Likewise a seek of an audio stream begins some frames early, and these never come out.
///
/// Failures are FFmpeg's negative codes (or false) and are logged with tag "bg".
/// Thread-safety: one thread at a time.
class Instance {
public:
    Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    ~Instance();

    /// Opens the file and a decoder for its stream number `stream_index`; an instance that is open
    /// is closed first. On false the instance may be partly open: close() it.
    bool open(const char* path, int stream_index);

    /// Closes everything. Closing twice is harmless.
    void close();

    /// True once the file is open, even if opening the decoder failed afterwards.
    bool is_open() const { return m_format != nullptr; }

    /// Reads the next packet of the stream. Returns 0, or the read error (AVERROR_EOF at the end,
    /// AVERROR_EXIT if not open).
    int get_packet(AVPacket* packet);

    /// Decodes the next frame into `frame`, its pts repaired. `packet` is scratch; both are
    /// unreferenced first. Returns 0, AVERROR_EOF after the last frame, AVERROR_EXIT if not open,
    /// or the error of a read or a decode call: calling again goes on behind it.
    /// A decoder with threads wants many packets before its first frame, so `cancel` (may be null)
    /// is looked at before each of them: once it is set the result is AVERROR_EXIT, with nothing
    /// lost, and calling again goes on from there.
    int get_frame(AVPacket* packet, AVFrame* frame, const std::atomic<bool>* cancel = nullptr);

    /// For who asks what comes out but does not look at it: from here on pictures are decoded
    /// roughly (their number, times and shape stay what they are), and with `max_packets` above 0
    /// the stream ends after so many packets.
    void decode_roughly(int max_packets);

    /// True if the end that get_frame() tells is that of decode_roughly() and may not be the
    /// file's.
    bool is_cut_short() const { return m_packets_left == 0; }

    /// Decodes the next subtitle event, which the caller frees with avsubtitle_free. Returns the
    /// decoder's result, -1 if the packet gave no event, or the read error.
    int get_subtitle(AVPacket* packet, AVSubtitle* subtitle);

    /// The header of an ASS stream, owned by the decoder; null if there is none.
    const std::uint8_t* get_subtitle_header() const;

    /// Positions the stream at or before `ts` (ticks), not before its start. With `flush` the
    /// decoder forgets what it holds. A failed seek to the start opens the file again instead.
    bool seek(std::int64_t ts, bool flush);

    /// To be asked behind a seek: true if it ended at the packet at which the seek before it, or
    /// the opening, did. A decoder of pictures gives the same from there again. Never true for
    /// sound, where the seek's own time decides what comes out, nor behind a seek to the start.
    bool landed_where_it_did_before();

    /// Exchanges everything with `other`.
    void swap(Instance* other);

    AVFormatContext* format_contex() const { return m_format.get(); }

    AVCodecContext* codec_context() const { return m_codec.get(); }

    AVStream* avstream() const { return m_stream; }

private:
    bool open_format(const char* path, int stream_index);
    bool open_codec(const char* path, int stream_index);
    bool make_codec_context(const AVCodec* codec);
    bool start_codec(const AVCodec* codec);
    void reset_codec(bool at_start);
    void ignore_other_streams();
    int decode_frame(AVPacket* packet, AVFrame* frame, const std::atomic<bool>* cancel);
    void measure_sound(AVFrame* frame) const;
    void keep_sound_in_order(AVFrame* frame);
    std::int64_t next_sound_time(std::int64_t time, std::int64_t length);
    int read_packet(AVPacket* packet, const std::atomic<bool>* cancel);
    int take_packet(AVPacket* packet);
    int read_at_landing(AVPacket* packet);
    void note_first_packet();
    int feed_decoder(AVPacket* packet, const std::atomic<bool>* cancel, bool* more_input);
    bool seek_file(std::int64_t target);
    int seek_before(std::int64_t target);
    std::int64_t time_to_decode_from(std::int64_t target) const;
    int seek_to_first_packet(std::int64_t target);
    bool has_plain_samples() const;
    bool is_broadcast() const;
    std::int64_t packet_start_before(std::int64_t target) const;
    bool reopen();
    void expect_key_frame(bool at_start);
    bool passes_key_gate(const AVPacket& packet);
    void expect_settling(std::int64_t target, bool at_start);
    bool is_settling(const AVFrame& frame);
    bool is_inexact(const AVFrame& frame, bool draining);
    bool is_damaged(const AVFrame& frame, bool draining);
    bool is_repeated(const AVFrame& frame, bool draining);
    std::int64_t start_or_zero() const;

    /// Where the next packet is read.
    enum class Landing { FileOpened, SeekToStart, SeekToTime, BehindPacket };

    /// Where a packet lies in the file, and the times that it has.
    struct PacketMark {
        std::int64_t pts = AV_NOPTS_VALUE;
        std::int64_t dts = AV_NOPTS_VALUE;
        std::int64_t pos = -1;
        std::int64_t duration = 0;  // ticks

        /// Unknown where a packet has no place in the file.
        bool is_same_packet(const PacketMark& other) const {
            return pos >= 0 && pos == other.pos && pts == other.pts && dts == other.dts;
        }
    };

    static PacketMark mark_of(const AVPacket& packet, int read_result);

    /// Where a frame of sound lies, ticks.
    struct SoundPlace {
        std::int64_t time = AV_NOPTS_VALUE;
        std::int64_t end = 0;
    };

    /// What stands between a seek and the first picture that can be trusted.
    enum class Gate {
        Open,         // every picture counts
        WaitForKey,   // packets are skipped until a key frame
        WaitForTime,  // pictures are skipped until the key frame's own time
    };

    static constexpr int kAllPackets = -1;

    FormatContextPtr m_format;
    CodecContextPtr m_codec;
    AVStream* m_stream = nullptr;  // owned by m_format
    DictPtr m_options;             // what avcodec_open2 left of the decoder options
    std::unique_ptr<FrameJitter> m_jitter;
    Landing m_landing = Landing::FileOpened;
    PacketMark m_first_packet;  // of the stream, as it is when the file has just been opened
    PacketMark m_landed_on;     // the first packet behind the last opening or seek
    PacketPtr m_ahead;          // which has been read but not used; null if there is none
    int m_ahead_result = 0;     // of reading it
    FlacClock m_flac_clock;
    bool m_has_concealed = false;  // the decoder has made up parts of pictures
    Gate m_gate = Gate::Open;
    std::int64_t m_key_time = AV_NOPTS_VALUE;      // of the key frame that opened the gate
    std::int64_t m_settle_until = AV_NOPTS_VALUE;  // sound that ends before it is dropped
    SoundPlace m_sound_place;                      // of the frame of sound decoded last
    bool m_drop_damaged = false;                   // the decoder hands out damaged pictures, marked
    bool m_has_recovered = false;                  // and no more of them will come
    bool m_drop_repeated = false;                  // the decoder repeats a picture at the end
    std::int64_t m_time_before = AV_NOPTS_VALUE;   // of the picture before, to tell that by
    int m_packets_left = kAllPackets;              // that the decoder may still get
};

}  // namespace ff
