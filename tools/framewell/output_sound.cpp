#include "output_sound.h"

#include "ffmpeg_facts.h"
#include "report.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avconfig.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

namespace tool {

/// A file that sound is written to. The destructor closes it as it is.
class SoundSink {
public:
    SoundSink() = default;
    SoundSink(const SoundSink&) = delete;
    SoundSink& operator=(const SoundSink&) = delete;
    virtual ~SoundSink() = default;

    virtual void write(const ff::AFrameCtx& sound) = 0;
    virtual void finish() = 0;
};

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw Failure(path + ": cannot be written (" + reason +
                  "); check the folder, its permissions and the space left");
}

class RawSink final : public SoundSink {
public:
    explicit RawSink(std::string path)
        : m_path(std::move(path)), m_file(std::fopen(m_path.c_str(), "wb")) {
        if (m_file == nullptr) {
            fail(m_path, system_error_text(errno));
        }
    }

    RawSink(const RawSink&) = delete;
    RawSink& operator=(const RawSink&) = delete;

    ~RawSink() override {
        if (m_file != nullptr) {
            (void)std::fclose(m_file);  // the file is given up
        }
    }

    void write(const ff::AFrameCtx& sound) override {
        const std::string_view bytes = sample_bytes(sound);
        errno = 0;
        if (std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size()) {
            fail(m_path, system_error_text(errno));
        }
    }

    void finish() override {
        std::FILE* const file = std::exchange(m_file, nullptr);
        errno = 0;
        if (std::fclose(file) != 0) {  // only this shows whether the last bytes had room
            fail(m_path, system_error_text(errno));
        }
    }

private:
    const std::string m_path;
    std::FILE* m_file;
};

// FFmpeg moved the number of channels into a layout in 5.1; whichever the structure has is set.
template <class Parameters>
auto set_channels(Parameters& parameters, int channels, int /*preferred*/)
    -> decltype(parameters.ch_layout.nb_channels, void()) {
    av_channel_layout_default(&parameters.ch_layout, channels);
}

template <class Parameters>
void set_channels(Parameters& parameters, int channels, long /*otherwise*/) {
    parameters.channels = channels;
}

AVCodecID wav_codec(int format) {
    switch (format) {
        case AV_SAMPLE_FMT_U8:
            return AV_CODEC_ID_PCM_U8;
        case AV_SAMPLE_FMT_S16:
            return AV_CODEC_ID_PCM_S16LE;
        case AV_SAMPLE_FMT_S32:
            return AV_CODEC_ID_PCM_S32LE;
        case AV_SAMPLE_FMT_FLT:
            return AV_CODEC_ID_PCM_F32LE;
        default:
            return AV_CODEC_ID_NONE;
    }
}

/// Closes the file, which is complete by then or given up, and frees the muxer.
struct CloseMuxer {
    void operator()(AVFormatContext* muxer) const {
        (void)avio_closep(&muxer->pb);
        avformat_free_context(muxer);
    }
};

class WavSink final : public SoundSink {
public:
    WavSink(const std::string& path, const ff::AFrameCtx& first) : m_path(path) {
        AVFormatContext* muxer = nullptr;
        check(avformat_alloc_output_context2(&muxer, nullptr, "wav", nullptr));
        m_muxer.reset(muxer);
        // Beyond 4 GiB the file becomes one with 64-bit sizes.
        (void)av_opt_set(m_muxer->priv_data, "rf64", "auto", 0);  // an old FFmpeg may lack it
        AVStream* const stream = avformat_new_stream(muxer, nullptr);
        if (stream == nullptr) {
            throw std::bad_alloc();
        }
        AVCodecParameters& parameters = *stream->codecpar;
        parameters.codec_type = AVMEDIA_TYPE_AUDIO;
        parameters.codec_id = wav_codec(first.format);
        parameters.format = first.format;
        parameters.sample_rate = first.sample_rate;
        set_channels(parameters, first.channels, 0);
        m_sample_bytes = av_get_bytes_per_sample(static_cast<AVSampleFormat>(first.format));
        m_block_bytes = m_sample_bytes * first.channels;
        parameters.bits_per_coded_sample = 8 * m_sample_bytes;
        parameters.block_align = m_block_bytes;
        parameters.bit_rate = std::int64_t{8} * m_block_bytes * first.sample_rate;
        stream->time_base = {1, first.sample_rate};
        // Without the prefix a colon in the name would be taken for the end of a protocol's.
        check(avio_open(&muxer->pb, ("file:" + path).c_str(), AVIO_FLAG_WRITE));
        check(avformat_write_header(muxer, nullptr));
    }

    void write(const ff::AFrameCtx& sound) override {
        const std::string_view bytes = sample_bytes(sound);
        // A packet's size is an int, and the muxer keeps none for long.
        const std::size_t piece = static_cast<std::size_t>(m_block_bytes) * 65536;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            write_packet(bytes.substr(at, piece));
        }
    }

    void finish() override {
        check(av_write_trailer(m_muxer.get()));
        avio_flush(m_muxer->pb);
        check(m_muxer->pb->error);
        check(avio_closep(&m_muxer->pb));
    }

private:
    void write_packet(std::string_view bytes) {
        m_buffer.assign(bytes.begin(), bytes.end());
        if (AV_HAVE_BIGENDIAN != 0) {  // the file has the low byte first
            const auto size = static_cast<std::ptrdiff_t>(m_sample_bytes);
            for (auto at = m_buffer.begin(); at != m_buffer.end(); at += size) {
                std::reverse(at, at + size);
            }
        }
        AVPacket* packet = av_packet_alloc();
        if (packet == nullptr) {
            throw std::bad_alloc();
        }
        packet->data = m_buffer.data();
        packet->size = static_cast<int>(m_buffer.size());
        packet->pts = packet->dts = m_written;
        packet->duration = packet->size / m_block_bytes;
        m_written += packet->duration;
        const int result = av_write_frame(m_muxer.get(), packet);
        av_packet_free(&packet);
        check(result);
        check(m_muxer->pb->error);
    }

    void check(int result) const {
        if (result < 0) {
            fail(m_path, ffmpeg_reason(result));
        }
    }

    const std::string m_path;
    std::unique_ptr<AVFormatContext, CloseMuxer> m_muxer;
    std::vector<std::uint8_t> m_buffer;
    int m_sample_bytes = 0;
    int m_block_bytes = 0;
    std::int64_t m_written = 0;  // samples per channel
};

std::string lower_extension(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

}  // namespace

std::string_view sample_bytes(const ff::AFrameCtx& sound) {
    const int size = av_get_bytes_per_sample(static_cast<AVSampleFormat>(sound.format));
    return {reinterpret_cast<const char*>(sound.data[0]),
            static_cast<std::size_t>(sound.nb_samples) * static_cast<std::size_t>(size) *
                static_cast<std::size_t>(sound.channels)};
}

SoundTarget::SoundTarget(const std::string& text) {
    if (text == "-") {
        return;
    }
    const std::string extension = lower_extension(text);
    if (extension != ".wav" && extension != ".raw") {
        throw Failure("-o " + text +
                          ": end the name in .wav or .raw, or use - for raw bytes on standard "
                          "output",
                      Exit::Usage);
    }
    m_path = text;
    m_is_wav = extension == ".wav";
}

SoundTarget::~SoundTarget() {
    if (m_sink == nullptr) {
        return;
    }
    m_sink.reset();
    std::error_code ignored;
    if (std::filesystem::is_regular_file(std::filesystem::symlink_status(m_path, ignored))) {
        std::filesystem::remove(m_path, ignored);  // half a file is worse than none
    }
}

bool SoundTarget::is_standard_output() const {
    return m_path.empty();
}

void SoundTarget::write(const ff::AFrameCtx& sound) {
    if (m_path.empty()) {
        write_out(sample_bytes(sound));
        return;
    }
    if (m_sink == nullptr) {
        if (m_is_wav) {
            m_sink = std::make_unique<WavSink>(m_path, sound);
        } else {
            m_sink = std::make_unique<RawSink>(m_path);
        }
    }
    m_sink->write(sound);
}

void SoundTarget::finish() {
    if (m_sink != nullptr) {
        m_sink->finish();
        m_sink.reset();
    }
}

}  // namespace tool
