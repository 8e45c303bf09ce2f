#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

namespace bench {

/// What framewell is measured against: the loop that a careful engineer writes over the FFmpeg
/// libraries for one job. It knows before it starts where every key frame lies, seeks straight to
/// the right one, decodes on where that is shorter, keeps the pictures decoded last, and scales
/// into one buffer that it uses again and again.
///
/// It may do what a library must not: it takes no lock, keeps no result for its caller, and knows
/// that the file is sound. Its failures end the program.
class PlainLoop {
public:
    static constexpr std::size_t kKeptPictures = 9;

    /// Opens the first video stream of the file for pictures of `width` x `height` (as the library
    /// makes them) in FFmpeg's pixel format `format`.
    PlainLoop(const std::string& path, int width, int height, int format);
    PlainLoop(const PlainLoop&) = delete;
    PlainLoop& operator=(const PlainLoop&) = delete;
    ~PlainLoop();

    /// The times of all pictures in order, in ticks: times are asked for by their exact value.
    const std::vector<std::int64_t>& times() const { return m_times; }

    /// Ticks per second.
    int ticks_per_second() const;

    /// Scales the picture of this time into buffer(). Returns its time.
    std::int64_t show(std::int64_t time);

    /// Only scales it: it has been shown a moment ago and is still kept.
    void show_kept(std::int64_t time);

    const std::uint8_t* const* planes() const { return m_planes; }

    const int* strides() const { return m_strides; }

private:
    struct Free {
        void operator()(AVFormatContext* format) const;
        void operator()(AVCodecContext* codec) const;
        void operator()(AVPacket* packet) const;
        void operator()(AVFrame* frame) const;
        void operator()(SwsContext* scaler) const;
        void operator()(std::uint8_t* memory) const;
    };

    template <typename T>
    using Owned = std::unique_ptr<T, Free>;

    void open(const std::string& path);
    void list_pictures();
    void make_scaler(int width, int height, int format);
    std::int64_t key_frame_for(std::int64_t time) const;
    const AVFrame* find_kept(std::int64_t time) const;
    const AVFrame* decode_to(std::int64_t time);
    void seek_to(std::int64_t key_frame);
    void decode_one();
    void keep(Owned<AVFrame> frame);
    void scale(const AVFrame& frame);

    Owned<AVFormatContext> m_format;
    Owned<AVCodecContext> m_codec;
    AVStream* m_stream = nullptr;  // owned by m_format
    Owned<AVPacket> m_packet;
    Owned<SwsContext> m_scaler;
    Owned<std::uint8_t> m_buffer;
    std::uint8_t* m_planes[4] = {};
    int m_strides[4] = {};

    std::vector<std::int64_t> m_times;
    std::vector<std::int64_t> m_key_frames;  // by time
    std::deque<Owned<AVFrame>> m_kept;       // by age, the newest last
    std::size_t m_next = 0;                  // position in m_times of what decoding gives next
};

}  // namespace bench
