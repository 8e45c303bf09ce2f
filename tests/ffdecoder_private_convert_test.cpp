#include "ffdecoder_filter.h"
#include "ffdecoder_private.h"
#include "tests/support/decoders.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"

#include <framewell/media/ffmpeg_error.h>
#include <framewell/utils/mempool.h>

#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using ff::FFDecoderPrivate;
using ff::PixelFormat;
using ff::SampleFormat;
using ff::StreamType;
using fw_test::LogCapture;
using fw_test::make_picture_frame;
using fw_test::make_s16_frame;
using fw_test::picture_at;
using fw_test::stream_of;

/// Counts the messages of the FFmpeg libraries that contain a text, while it lives.
class LibraryMessages {
public:
    explicit LibraryMessages(const char* part) {
        s_part = part;
        s_count = 0;
        av_log_set_level(AV_LOG_DEBUG);
        av_log_set_callback(&LibraryMessages::note);
    }

    LibraryMessages(const LibraryMessages&) = delete;
    LibraryMessages& operator=(const LibraryMessages&) = delete;

    ~LibraryMessages() {
        av_log_set_callback(&av_log_default_callback);
        av_log_set_level(AV_LOG_INFO);
    }

    int count() const { return s_count; }

private:
    static void note(void*, int, const char* format, std::va_list) {
        if (std::strstr(format, s_part) != nullptr) {
            ++s_count;
        }
    }

    static inline const char* s_part = "";
    static inline std::atomic<int> s_count{0};
};

/// A decoder's state on a stream of 64x48 pixels whose tick is a millisecond.
class PictureConversionTest : public ::testing::Test {
protected:
    PictureConversionTest() { opened = decoder.open(stream); }

    void SetUp() override {
        ASSERT_TRUE(opened);
        ASSERT_EQ(stream->time_base, (ff::Rational{1, 1000}));
    }

    const ff::StreamCtx* const stream = stream_of(fw_test::clip_flat({81, 90, 240}, "64x48"));
    FFDecoderPrivate decoder;
    bool opened = false;
};

/// A decoder's state; sound is converted without a stream.
class SoundConversionTest : public ::testing::Test {
protected:
    static ff::RequireAudioFrame sound_as(int channels, int sample_rate,
                                          SampleFormat format = SampleFormat::S16) {
        ff::RequireAudioFrame request;
        request.channels = channels;
        request.sample_rate = sample_rate;
        request.format = format;
        return request;
    }

    int samples_of(const std::shared_ptr<AVFrame>& frame, const ff::RequireAudioFrame& request) {
        const auto sound = decoder.convert_to_dst_aframe(frame.get(), request);
        return sound ? sound->nb_samples : -1;
    }

    FFDecoderPrivate decoder;
};

}  // namespace

TEST_F(PictureConversionTest, FillsTheRecord) {
    const auto frame = make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 128, 1234);
    const auto picture =
        decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::Nv12, 2));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, 32);
    EXPECT_EQ(picture->height, 24);
    EXPECT_EQ(picture->format, AV_PIX_FMT_NV12);
    EXPECT_EQ(picture->src_width, 64);
    EXPECT_EQ(picture->src_height, 48);
    EXPECT_EQ(picture->divider, 2);
    EXPECT_EQ(picture->pts, 1234000);
    EXPECT_EQ(picture->size, av_image_get_buffer_size(AV_PIX_FMT_NV12, 32, 24, 32));
    EXPECT_EQ(picture->data[0], picture->buffer);
    EXPECT_EQ(picture->data[1], picture->buffer + 32 * 24);
    EXPECT_EQ(picture->linesize[0], 32);
    EXPECT_EQ(picture->linesize[1], 32);
}

TEST_F(PictureConversionTest, TakesTheBestEffortTime) {
    const auto frame = make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 128, 1000);
    frame->pts = 7;
    const auto picture = decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->pts, 1000000);
}

TEST_F(PictureConversionTest, GivesTheStreamsSizeWhateverTheFramesIs) {
    for (const int size : {16, 200, 64}) {
        const auto frame = make_picture_frame(AV_PIX_FMT_YUV420P, size, size, 77);
        const auto picture = decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}));
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(picture->width, 64);
        EXPECT_EQ(picture->height, 48);
        EXPECT_EQ(fw_test::luma_of(*picture), std::string(64 * 48, 77)) << size;
    }
}

TEST_F(PictureConversionTest, LeavesRoomBehindThePictureForTheScaler) {
    // The scaler writes RGBA in blocks of 16 pixels. Rows of 18 pixels fill their 96 bytes with 24,
    // so the second block of the last row ends 32 bytes behind the picture.
    const ff::StreamCtx* const tiny = stream_of(fw_test::clip_flat({81, 90, 240}, "18x18"));
    ASSERT_TRUE(decoder.open(tiny));
    (void)ff::mem_collection(0);
    const auto frame = make_picture_frame(AV_PIX_FMT_YUV420P, 18, 18, 128);
    const auto picture =
        decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::Rgba));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->size, 96 * 18);
    EXPECT_GE(malloc_usable_size(picture->buffer), static_cast<std::size_t>(picture->size) + 32);
}

TEST_F(PictureConversionTest, MakesTheScalerOncePerShape) {
    const auto frame = make_picture_frame(AV_PIX_FMT_YUVJ420P, 64, 48, 128);
    // The scaler says this about full-range formats whenever one is made.
    const LibraryMessages made("deprecated pixel format used");
    for (int i = 0; i < 20; ++i) {
        ASSERT_NE(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1})), nullptr);
    }
    EXPECT_EQ(made.count(), 1);
    ASSERT_NE(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::Rgba)),
              nullptr);
    EXPECT_EQ(made.count(), 2);
    ASSERT_NE(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::Rgba, 2)),
              nullptr);
    EXPECT_EQ(made.count(), 3);
    const auto larger = make_picture_frame(AV_PIX_FMT_YUVJ420P, 80, 48, 128);
    ASSERT_NE(decoder.convert_to_dst_frame(larger.get(), picture_at({0, 1}, PixelFormat::Rgba, 2)),
              nullptr);
    EXPECT_EQ(made.count(), 4);
}

TEST_F(PictureConversionTest, ScalesAgainAfterARequestThatWasNotPossible) {
    const auto frame = make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 90);
    ASSERT_NE(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1})), nullptr);
    EXPECT_EQ(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::None)),
              nullptr);
    EXPECT_EQ(
        decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::Yuv420p, 1000)),
        nullptr);
    const auto picture = decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(fw_test::luma_of(*picture), std::string(64 * 48, 90));
}

TEST_F(PictureConversionTest, ReportsAScalerThatFailsAndShowsNoOtherPicture) {
    const auto good = make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 90);
    ASSERT_NE(decoder.convert_to_dst_frame(good.get(), picture_at({0, 1})), nullptr);

    for (const int format : {static_cast<int>(AV_PIX_FMT_CUDA), -1}) {
        const std::shared_ptr<AVFrame> frame = ff::create_avframe_ptr(av_frame_alloc());
        frame->format = format;
        frame->width = 64;
        frame->height = 48;
        frame->best_effort_timestamp = 40;
        LogCapture log;
        const auto picture = decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}));
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(picture->pts, 40000);
        EXPECT_EQ(std::count(picture->buffer, picture->buffer + picture->size, 0), picture->size);
        const std::vector<fw_test::LogLine> lines = log.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].message,
                  fw_test::quoted(std::string("sws error: ") + ff::ffmpeg_error(AVERROR(EINVAL))));
        EXPECT_EQ(lines[0].level, 2);
        EXPECT_EQ(lines[0].tag, decoder.m_name);
        EXPECT_EQ(lines[0].file, "src/ffdecoder_private");
    }
    EXPECT_NE(decoder.convert_to_dst_frame(good.get(), picture_at({0, 1})), nullptr);
}

TEST_F(PictureConversionTest, MakesNoPictureOfSound) {
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_aac(), StreamType::Audio)));
    const auto frame = make_s16_frame(2, 44100, 100, 5);
    LogCapture log;
    EXPECT_EQ(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1})), nullptr);
    EXPECT_EQ(log.texts(2), std::vector<std::string>{"divider 1 leaves nothing of 0x0"});
}

TEST_F(PictureConversionTest, DoesNotChangeTheFrame) {
    const auto frame = make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 90, 77);
    ASSERT_NE(decoder.convert_to_dst_frame(frame.get(), picture_at({0, 1}, PixelFormat::Rgba)),
              nullptr);
    EXPECT_EQ(frame->pts, 77);
    EXPECT_EQ(frame->width, 64);
    EXPECT_EQ(frame->data[0][47 * frame->linesize[0] + 63], 90);
}

// Filters

TEST_F(PictureConversionTest, AppliesTheFilterAndStopsWhenItIsClosed) {
    class FilteringDecoder final : public ff::FFDecoder {
    public:
        FFDecoderPrivate* state() const { return d(); }
    };

    const std::string path = fw_test::make_clip(
        "sides.mkv",
        "-f lavfi -i "
        "color=black:s=64x48:r=10:d=1,format=yuv444p,geq=lum='if(lt(X\\,32)\\,50\\,200)'"
        ":cb=128:cr=128,format=yuv420p -c:v ffv1 -threads 1");
    FilteringDecoder filtering;
    ASSERT_TRUE(filtering.open(stream_of(path)));
    const auto left_of = [&](const ff::Rational& time) {
        const auto picture = filtering.getVideoFrame(picture_at(time));
        return picture ? fw_test::plane_byte(*picture, 0, 4, 4) : -1;
    };
    EXPECT_EQ(left_of({0, 1}), 50);
    ASSERT_TRUE(filtering.state()->open_filter("hflip"));
    EXPECT_EQ(left_of({0, 1}), 200);
    EXPECT_EQ(left_of({9, 10}), 200);
    EXPECT_EQ(left_of({1, 10}), 200);
    ASSERT_TRUE(filtering.state()->open_filter("hflip,hflip"));
    EXPECT_EQ(left_of({1, 10}), 50);
    ASSERT_TRUE(filtering.state()->open_filter("hflip"));
    filtering.state()->close_filter();
    EXPECT_EQ(left_of({1, 10}), 50) << "the filter must not change remembered frames";

    // Pictures keep the stream's size and their own time, also when the filter changes the size.
    ASSERT_TRUE(filtering.state()->open_filter("hflip,scale=200:100"));
    const auto picture = filtering.getVideoFrame(picture_at({1, 2}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, 64);
    EXPECT_EQ(picture->height, 48);
    EXPECT_EQ(picture->src_width, 64);
    EXPECT_EQ(picture->pts, 500000);
    EXPECT_NEAR(fw_test::plane_byte(*picture, 0, 4, 4), 200, 2);
    ASSERT_TRUE(filtering.state()->open_filter("scale=20:10"));
    EXPECT_NEAR(left_of({1, 2}), 50, 2);

    // A graph that wants more than one picture for one gives nothing yet, and says nothing.
    ASSERT_TRUE(filtering.state()->open_filter("tile=2x1"));
    LogCapture log;
    EXPECT_EQ(left_of({0, 1}), -1);
    EXPECT_EQ(log.texts(2), std::vector<std::string>{});
    EXPECT_NE(left_of({1, 10}), -1);

    EXPECT_FALSE(filtering.state()->open_filter("no_such_filter"));
    EXPECT_EQ(left_of({0, 1}), 50);
}

TEST_F(PictureConversionTest, ReportsAGraphThatTakesNoFrames) {
    ff::AVFilterMgr incomplete;
    std::shared_ptr<AVFrame> frame = make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 90);
    const AVFrame* const before = frame.get();
    LogCapture log;
    EXPECT_EQ(ff::excute_filting(&incomplete, frame), AVERROR(EINVAL));
    EXPECT_EQ(frame.get(), before);
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].message,
              fw_test::quoted(std::string("Error while feeding the filtergraph: err=") +
                              ff::ffmpeg_error(AVERROR(EINVAL))));
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].tag, "bg");
    EXPECT_EQ(lines[0].file, "src/ffdecoder");
}

// Sound

TEST_F(SoundConversionTest, ConvertsSamplesAndFillsTheRecord) {
    ff::RequireAudioFrame request = sound_as(2, 44100, SampleFormat::Flt);
    request.range = {{5, 2}, {3, 1}};
    const auto frame = make_s16_frame(2, 44100, 100, 16384);
    const auto sound = decoder.convert_to_dst_aframe(frame.get(), request);
    ASSERT_NE(sound, nullptr);
    EXPECT_EQ(sound->channels, 2);
    EXPECT_EQ(sound->sample_rate, 44100);
    EXPECT_EQ(sound->format, AV_SAMPLE_FMT_FLT);
    EXPECT_EQ(sound->planar, 0);
    EXPECT_EQ(sound->nb_samples, 100);
    EXPECT_EQ(sound->pts, 2500000);
    EXPECT_EQ(sound->size, 100 * 2 * 4);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(sound->buffer) % 16, 0U);
    EXPECT_EQ(sound->data[0], sound->buffer);
    const auto* const samples = reinterpret_cast<const float*>(sound->data[0]);
    EXPECT_TRUE(std::all_of(samples, samples + 200, [](float value) { return value == 0.5F; }));
}

TEST_F(SoundConversionTest, ConvertsToEveryFormat) {
    const auto frame = make_s16_frame(1, 8000, 10, 16384);
    const auto u8 = decoder.convert_to_dst_aframe(frame.get(), sound_as(1, 8000, SampleFormat::U8));
    const auto s16 = decoder.convert_to_dst_aframe(frame.get(), sound_as(1, 8000));
    const auto s32 =
        decoder.convert_to_dst_aframe(frame.get(), sound_as(1, 8000, SampleFormat::S32));
    ASSERT_TRUE(u8 && s16 && s32);
    EXPECT_EQ(u8->data[0][9], 192);
    EXPECT_EQ(reinterpret_cast<const std::int16_t*>(s16->data[0])[9], 16384);
    EXPECT_EQ(reinterpret_cast<const std::int32_t*>(s32->data[0])[9], 1 << 30);
}

TEST_F(SoundConversionTest, ReusesTheResamplerForTheSameShapeAndRebuildsItForAnother) {
    // A resampler that has just been made holds back the samples that its filter needs, so its
    // first block is shorter than the following ones.
    const auto frame = make_s16_frame(2, 48000, 1600, 1000);
    const ff::RequireAudioFrame request = sound_as(2, 44100);
    const int fresh = samples_of(frame, request);
    ASSERT_GT(fresh, 0);
    ASSERT_LT(fresh, 1470);
    EXPECT_NEAR(samples_of(frame, request), 1470, 1);
    EXPECT_NEAR(samples_of(frame, request), 1470, 1);

    ASSERT_GT(samples_of(frame, sound_as(2, 32000)), 0);
    EXPECT_EQ(samples_of(frame, request), fresh) << "another rate";
    EXPECT_NEAR(samples_of(frame, request), 1470, 1);
    ASSERT_GT(samples_of(frame, sound_as(1, 44100)), 0);
    EXPECT_EQ(samples_of(frame, request), fresh) << "other channels";
    ASSERT_GT(samples_of(frame, sound_as(2, 44100, SampleFormat::Flt)), 0);
    EXPECT_EQ(samples_of(frame, request), fresh) << "another format";
    ASSERT_GT(samples_of(make_s16_frame(1, 48000, 1600, 1), request), 0);
    EXPECT_EQ(samples_of(frame, request), fresh) << "other channels of the source";
    ASSERT_GT(samples_of(make_s16_frame(2, 32000, 1600, 1), request), 0);
    EXPECT_EQ(samples_of(frame, request), fresh) << "another rate of the source";
}

TEST_F(SoundConversionTest, MakesANewResamplerAfterAReset) {
    const auto frame = make_s16_frame(2, 48000, 1600, 1000);
    const ff::RequireAudioFrame request = sound_as(2, 44100);
    const int fresh = samples_of(frame, request);
    ASSERT_GT(samples_of(frame, request), fresh);
    decoder.m_fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, 2, 16));
    decoder.reset_resampler_fifo();
    EXPECT_EQ(decoder.m_fifo, nullptr);
    decoder.reset_resampler_fifo();
    EXPECT_EQ(samples_of(frame, request), fresh);
}

TEST_F(SoundConversionTest, GivesARecordWithoutSamplesWhenNoneComeOutYet) {
    const auto one = make_s16_frame(2, 48000, 1, 1000);
    const auto sound = decoder.convert_to_dst_aframe(one.get(), sound_as(2, 44100));
    ASSERT_NE(sound, nullptr);
    EXPECT_EQ(sound->nb_samples, 0);
    EXPECT_EQ(sound->size, 0);
    EXPECT_EQ(sound->buffer, nullptr);
    EXPECT_EQ(sound->channels, 2);
    EXPECT_EQ(sound->sample_rate, 44100);
}

TEST_F(SoundConversionTest, AnswersNothingInSilenceWhenTheShapeIsNotPossible) {
    const auto frame = make_s16_frame(2, 48000, 100, 1000);
    av_log_set_level(AV_LOG_QUIET);
    LogCapture log;
    EXPECT_EQ(samples_of(frame, sound_as(0, 44100)), -1);
    EXPECT_EQ(samples_of(frame, sound_as(-2, 44100)), -1);
    EXPECT_EQ(samples_of(frame, sound_as(2, 0)), -1);
    EXPECT_EQ(samples_of(frame, sound_as(2, -1)), -1);
    EXPECT_EQ(samples_of(frame, sound_as(2, 44100, SampleFormat::None)), -1);
    EXPECT_EQ(samples_of(frame, sound_as(2, 44100, static_cast<SampleFormat>(99))), -1);
    EXPECT_EQ(samples_of(make_picture_frame(AV_PIX_FMT_YUV420P, 64, 48, 1), sound_as(2, 44100)),
              -1);
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
    av_log_set_level(AV_LOG_INFO);
    EXPECT_GT(samples_of(frame, sound_as(2, 44100)), 0);
}

TEST_F(SoundConversionTest, FollowsAChangeOfLayoutThatKeepsTheCount) {
    const auto frame = make_s16_frame(6, 48000, 100, 1000);
    const ff::RequireAudioFrame request = sound_as(2, 48000);
    ASSERT_EQ(samples_of(frame, request), 100);
    const auto side = make_s16_frame(6, 48000, 100, 1000);
    ff::compat::set_channels(side.get(), AV_CH_LAYOUT_5POINT1, 6);
    const auto back = make_s16_frame(6, 48000, 100, 1000);
    ff::compat::set_channels(back.get(), AV_CH_LAYOUT_5POINT1_BACK, 6);
    LogCapture log;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(samples_of(side, request), 100);
        EXPECT_EQ(samples_of(back, request), 100);
    }
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}
