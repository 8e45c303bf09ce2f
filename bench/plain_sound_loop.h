#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwrContext;

namespace bench {

/// PlainLoop's counterpart for sound: decodes the first audio stream of a file and resamples it to
/// 16-bit stereo, frame by frame, into one buffer that it uses again and again. Nothing is cut,
/// queued or copied that need not be. Its failures end the program.
class PlainSoundLoop {
public:
    using Samples = std::vector<std::int16_t>;  // left and right by turns

    PlainSoundLoop(const std::string& path, int rate);
    PlainSoundLoop(const PlainSoundLoop&) = delete;
    PlainSoundLoop& operator=(const PlainSoundLoop&) = delete;
    ~PlainSoundLoop();

    /// Resamples the whole stream from where it stands. Returns how many samples it gave; with
    /// `record`, they are appended there.
    std::int64_t play(Samples* record);

    /// Resamples `count` samples of the stream from its sample `first` on. Decoding begins
    /// `preroll` samples earlier. What came out is in buffer().
    /// Returns how many samples it gave.
    int take(std::int64_t first, int count, int preroll);

    /// The same, decoding from the start of the stream with a fresh decoder.
    int take_from_start(std::int64_t first, int count);

    /// The last result of take().
    const std::int16_t* buffer() const { return m_buffer.data(); }

private:
    struct Free {
        void operator()(AVFormatContext* format) const;
        void operator()(AVCodecContext* codec) const;
        void operator()(AVPacket* packet) const;
        void operator()(AVFrame* frame) const;
        void operator()(SwrContext* resampler) const;
    };

    template <typename T>
    using Owned = std::unique_ptr<T, Free>;

    void open(const std::string& path);
    void open_codec();
    void make_resampler(int rate);
    void seek(std::int64_t sample);
    bool decode();
    int cut(std::int64_t first, int count);
    int resample(int skip, int count, int filled);
    std::int64_t to_ticks(std::int64_t samples) const;

    Owned<AVFormatContext> m_format;
    Owned<AVCodecContext> m_codec;
    AVStream* m_stream = nullptr;  // owned by m_format
    Owned<AVPacket> m_packet;
    Owned<AVFrame> m_frame;
    Owned<SwrContext> m_resampler;
    Samples m_buffer;
};

}  // namespace bench
