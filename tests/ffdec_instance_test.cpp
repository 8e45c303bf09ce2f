// Opening, reading and decoding; the functions of libav that the tests of the engine can replace.

#include "ffdec_instance.h"

#include "tests/hw/libav_hooks.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/processor.h"

#include <framewell/media/ffmpeg_error.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

fw_test::DemuxHooks fw_test::g_demux_hooks;

using fw_test::g_demux_hooks;

namespace {

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// libavformat decodes what it looks at with the same functions.
thread_local bool t_is_finding_streams = false;

}  // namespace

extern "C" {

int av_read_frame(AVFormatContext* format, AVPacket* packet) {
    static auto* const s_real = real<int(AVFormatContext*, AVPacket*)>("av_read_frame");
    const auto answer =
        g_demux_hooks.read_packet ? g_demux_hooks.read_packet(packet) : std::nullopt;
    return answer ? *answer : s_real(format, packet);
}

int av_seek_frame(AVFormatContext* format, int stream, int64_t ts, int flags) {
    static auto* const s_real = real<int(AVFormatContext*, int, int64_t, int)>("av_seek_frame");
    const auto answer = g_demux_hooks.seek ? g_demux_hooks.seek(stream, ts, flags) : std::nullopt;
    return answer ? *answer : s_real(format, stream, ts, flags);
}

int avcodec_send_packet(AVCodecContext* ctx, const AVPacket* packet) {
    static auto* const s_real = real<int(AVCodecContext*, const AVPacket*)>("avcodec_send_packet");
    const auto answer = g_demux_hooks.send_packet && !t_is_finding_streams
                            ? g_demux_hooks.send_packet(packet)
                            : std::nullopt;
    return answer ? *answer : s_real(ctx, packet);
}

int avformat_find_stream_info(AVFormatContext* format, AVDictionary** options) {
    static auto* const s_real =
        real<int(AVFormatContext*, AVDictionary**)>("avformat_find_stream_info");
    if (g_demux_hooks.find_stream_info) {
        return *g_demux_hooks.find_stream_info;
    }
    t_is_finding_streams = true;
    const int result = s_real(format, options);
    t_is_finding_streams = false;
    return result;
}

int avcodec_parameters_to_context(AVCodecContext* ctx, const AVCodecParameters* parameters) {
    static auto* const s_real =
        real<int(AVCodecContext*, const AVCodecParameters*)>("avcodec_parameters_to_context");
    return g_demux_hooks.copy_parameters ? *g_demux_hooks.copy_parameters : s_real(ctx, parameters);
}

int avcodec_open2(AVCodecContext* ctx, const AVCodec* codec, AVDictionary** options) {
    static auto* const s_real =
        real<int(AVCodecContext*, const AVCodec*, AVDictionary**)>("avcodec_open2");
    return g_demux_hooks.open_codec ? *g_demux_hooks.open_codec : s_real(ctx, codec, options);
}

int av_dict_set(AVDictionary** dict, const char* key, const char* value, int flags) {
    static auto* const s_real =
        real<int(AVDictionary**, const char*, const char*, int)>("av_dict_set");
    return g_demux_hooks.set_option && std::strcmp(key, "threads") == 0
               ? *g_demux_hooks.set_option
               : s_real(dict, key, value, flags);
}

}  // extern "C"

namespace {

using ff::Instance;
using fw_test::as_decoded;
using fw_test::Decoded;
using fw_test::HookScope;
using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::make_file;
using fw_test::Reader;
using fw_test::reference_frames;
using fw_test::small_mp4;
using Texts = std::vector<std::string>;

std::string text_of(int error) {
    return ff::ffmpeg_error(error);
}

/// Opening fails with exactly this line, as every line of the module is tagged.
void expect_open_fails(const std::string& path, int stream, const std::string& text) {
    const LogCapture log;
    Instance instance;
    EXPECT_FALSE(instance.open(path.c_str(), stream));
    EXPECT_EQ(log.texts(2), Texts{text});
    for (const auto& line : log.lines()) {
        if (line.level == 2) {
            EXPECT_EQ(line.tag, "bg");
            EXPECT_EQ(line.file, "src/ffdec_instance");
        }
    }
    instance.close();
    EXPECT_FALSE(instance.is_open());
    EXPECT_EQ(instance.avstream(), nullptr);
    EXPECT_EQ(instance.codec_context(), nullptr);
}

// Opening

TEST(InstanceTest, ANewInstanceIsClosed) {
    const Instance instance;
    EXPECT_FALSE(instance.is_open());
    EXPECT_EQ(instance.format_contex(), nullptr);
    EXPECT_EQ(instance.codec_context(), nullptr);
    EXPECT_EQ(instance.avstream(), nullptr);
    EXPECT_EQ(instance.get_subtitle_header(), nullptr);
}

TEST(InstanceTest, NothingCanBeReadFromAClosedInstance) {
    const LogCapture log;
    Reader reader;
    reader.frame->width = 77;
    reader.frame->pts = 5;
    EXPECT_EQ(reader.next(), AVERROR_EXIT);
    EXPECT_EQ(reader.frame->width, 77) << "the frame must not be touched";
    EXPECT_EQ(reader.frame->pts, 5);
    EXPECT_EQ(reader.instance.get_packet(reader.packet.get()), AVERROR_EXIT);
    AVSubtitle subtitle{};
    EXPECT_LT(reader.instance.get_subtitle(reader.packet.get(), &subtitle), 0);
    EXPECT_FALSE(reader.instance.seek(0, true));
    EXPECT_FALSE(reader.instance.seek(100, false));
    EXPECT_EQ(log.texts(), Texts());
}

TEST(InstanceTest, OpensTheStreamThatIsAskedFor) {
    const std::string path = fw_test::clip_two_video_two_audio();
    for (int stream = 0; stream < 4; stream++) {
        Reader reader(path, stream);
        EXPECT_TRUE(reader.instance.is_open());
        ASSERT_NE(reader.instance.avstream(), nullptr);
        EXPECT_EQ(reader.instance.avstream()->index, stream);
        ASSERT_NE(reader.instance.format_contex(), nullptr);
        EXPECT_EQ(reader.instance.format_contex()->nb_streams, 4U);
        ASSERT_EQ(reader.next(), 0);
        EXPECT_EQ(reader.frame->width, stream == 0 ? 320 : stream == 1 ? 160 : 0);
        EXPECT_EQ(reader.frame->sample_rate, stream < 2 ? 0 : stream == 2 ? 44100 : 48000);
    }
}

TEST(InstanceTest, AMissingFileCannotBeOpened) {
    const std::string path = fw_test::no_file();
    expect_open_fails(path, 0, "failed to open: " + path + ", " + text_of(AVERROR(ENOENT)));
}

TEST(InstanceTest, ANullPathCannotBeOpened) {
    const LogCapture log;
    Instance instance;
    EXPECT_FALSE(instance.open(nullptr, 0));
    EXPECT_EQ(log.texts(2), Texts{"failed to open: , " + text_of(AVERROR(EINVAL))});
}

TEST(InstanceTest, AFileThatIsNoMediaCannotBeOpened) {
    for (const std::string& bytes : {std::string(), std::string("just a few words\n"),
                                     std::string(5000, '\0'), std::string(100, '\xff')}) {
        const LogCapture log;
        const std::string path = make_file("nothing.bin", bytes);
        Instance instance;
        EXPECT_FALSE(instance.open(path.c_str(), 0));
        EXPECT_EQ(log.texts(2),
                  Texts{"failed to open: " + path + ", " + text_of(AVERROR_INVALIDDATA)});
    }
}

TEST(InstanceTest, StreamNumbersThatTheFileLacksCannotBeOpened) {
    const std::string path = small_mp4();
    for (const int stream : {-1, 1, 1000000}) {
        const LogCapture log;
        Reader reader;
        EXPECT_FALSE(reader.instance.open(path.c_str(), stream));
        EXPECT_EQ(log.texts(2),
                  Texts{"no such stream: " + path + ", [" + std::to_string(stream) + "]"});
        EXPECT_EQ(reader.next(), AVERROR_EXIT);
        EXPECT_EQ(reader.instance.get_packet(reader.packet.get()), AVERROR_EXIT);
        EXPECT_FALSE(reader.instance.seek(0, true));
    }
}

TEST(InstanceTest, AStreamWithoutADecoderCannotBeOpened) {
    const std::string bytes =
        fw_test::read_file(make_clip("small.mkv", fw_test::small_video() + fw_test::kSmallH264));
    const std::string path = make_file(
        "unknown.mkv", fw_test::with_replaced(bytes, "V_MPEG4/ISO/AVC", "V_UNKNOWN/NOTHI"));
    expect_open_fails(path, 0, "failed to find decoder for: " + path + ", [0], 0");
}

TEST(InstanceTest, StreamsThatCannotBeAnalysedCannotBeOpened) {
    const HookScope scope;
    g_demux_hooks.find_stream_info = AVERROR(EIO);
    expect_open_fails(small_mp4(), 0, "failed to find stream info: " + text_of(AVERROR(EIO)));
}

TEST(InstanceTest, ParametersThatCannotBeCopiedEndTheOpening) {
    const HookScope scope;
    g_demux_hooks.find_stream_info = 0;
    g_demux_hooks.copy_parameters = AVERROR(ENOMEM);
    expect_open_fails(small_mp4(), 0, "failed to copy parameters");
}

TEST(InstanceTest, ADecoderThatCannotBeMadeEndsTheOpening) {
    const HookScope scope;
    g_demux_hooks.find_stream_info = 0;
    const std::string path = small_mp4();
    // The streams of a file that is being opened have contexts too; the decoder's is the last.
    int contexts = 0;
    int allowed = 1000;
    fw_test::g_hooks.alloc_context = [&](const AVCodec* codec) -> AVCodecContext* {
        return ++contexts > allowed
                   ? nullptr
                   : real<AVCodecContext*(const AVCodec*)>("avcodec_alloc_context3")(codec);
    };
    { const Reader complete(path, 0); }
    allowed = contexts - 1;
    contexts = 0;
    expect_open_fails(path, 0, "failed to alloc codec context");
    fw_test::g_hooks = fw_test::Hooks();
}

TEST(InstanceTest, ADecoderThatCannotBeOpenedEndsTheOpening) {
    const HookScope scope;
    g_demux_hooks.find_stream_info = 0;
    g_demux_hooks.open_codec = AVERROR(EINVAL);
    expect_open_fails(small_mp4(), 0,
                      "failed to open codec: " + std::to_string(AV_CODEC_ID_H264) + ", err=" +
                          std::to_string(AVERROR(EINVAL)) + ", " + text_of(AVERROR(EINVAL)));
}

TEST(InstanceTest, ARefusedThreadOptionIsReportedAndDecodingGoesOn) {
    const HookScope scope;
    const LogCapture log;
    g_demux_hooks.set_option = AVERROR(ENOMEM);
    Reader reader;
    EXPECT_TRUE(reader.instance.open(small_mp4().c_str(), 0));
    EXPECT_EQ(log.texts(2), Texts{"failed to set codec options"});
    EXPECT_EQ(reader.next(), 0);
}

TEST(InstanceTest, OpeningAgainStartsAnew) {
    Reader reader(small_mp4(), 0);
    ASSERT_EQ(reader.decode_all().size(), 50U);
    const LogCapture quiet;
    ASSERT_TRUE(reader.instance.open(fw_test::clip_two_video_two_audio().c_str(), 1));
    EXPECT_EQ(reader.instance.avstream()->index, 1);
    EXPECT_EQ(reader.decode(),
              as_decoded(reference_frames(fw_test::clip_two_video_two_audio(), 1)).front());
    ASSERT_FALSE(reader.instance.open(fw_test::no_file().c_str(), 0));
    EXPECT_FALSE(reader.instance.is_open());
    EXPECT_EQ(reader.next(), AVERROR_EXIT);
    ASSERT_TRUE(reader.instance.open(small_mp4().c_str(), 0));
    EXPECT_EQ(reader.decode_all().size(), 50U);
}

TEST(InstanceTest, ClosingTwiceIsHarmless) {
    Reader reader(small_mp4(), 0);
    ASSERT_EQ(reader.next(), 0);
    reader.instance.close();
    EXPECT_FALSE(reader.instance.is_open());
    EXPECT_EQ(reader.next(), AVERROR_EXIT);
    reader.instance.close();
    EXPECT_FALSE(reader.instance.is_open());
}

TEST(InstanceTest, TheFramesOutliveTheInstance) {
    Reader reader(small_mp4(), 0);
    ASSERT_EQ(reader.next(), 0);
    reader.instance.close();
    EXPECT_EQ(fw_test::picture_md5(*reader.frame), reference_frames(small_mp4(), 0)[0].md5);
}

TEST(InstanceTest, SwapExchangesTwoOpenInstances) {
    Reader one(small_mp4(), 0);
    Reader two(fw_test::clip_two_video_two_audio(), 1);
    const auto expected_one = as_decoded(reference_frames(small_mp4(), 0));
    const auto expected_two = as_decoded(reference_frames(fw_test::clip_two_video_two_audio(), 1));
    EXPECT_EQ(one.decode(), expected_one[0]);
    EXPECT_EQ(two.decode(), expected_two[0]);
    one.instance.swap(&two.instance);
    EXPECT_EQ(one.instance.avstream()->index, 1);
    EXPECT_EQ(two.instance.avstream()->index, 0);
    EXPECT_EQ(one.decode(), expected_two[1]);
    EXPECT_EQ(two.decode(), expected_one[1]);
}

TEST(InstanceTest, SwapWithAClosedInstanceMovesTheFile) {
    Reader one(small_mp4(), 0);
    Reader two;
    one.instance.swap(&two.instance);
    EXPECT_FALSE(one.instance.is_open());
    EXPECT_EQ(one.next(), AVERROR_EXIT);
    EXPECT_EQ(two.decode_all().size(), 50U);
}

// Packets

TEST(InstanceTest, PacketsOfOtherStreamsAreSkippedSilently) {
    const std::string path = fw_test::clip_two_video_two_audio();
    const LogCapture log;
    for (int stream = 0; stream < 4; stream++) {
        Reader reader(path, stream);
        int packets = 0;
        int result = 0;
        while ((result = reader.instance.get_packet(reader.packet.get())) >= 0) {
            EXPECT_EQ(reader.packet->stream_index, stream);
            packets++;
        }
        EXPECT_EQ(result, AVERROR_EOF);
        EXPECT_EQ(reader.instance.get_packet(reader.packet.get()), AVERROR_EOF);
        EXPECT_GE(packets, 75);
    }
    EXPECT_EQ(log.texts(2), Texts());
}

TEST(InstanceTest, ReadErrorsAreGivenToTheCallerOfGetPacket) {
    const HookScope scope;
    const LogCapture log;
    Reader reader(small_mp4(), 0);
    g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR(EIO); };
    EXPECT_EQ(reader.instance.get_packet(reader.packet.get()), AVERROR(EIO));
    EXPECT_EQ(log.texts(), Texts());
}

// Frames

namespace {

/// True for codecs whose inverse transform may differ in its last bit, as FFmpeg's does from
/// processor to processor. The program that decodes for the reference is not emulated.
bool leaves_bits_to_the_decoder(AVCodecID codec) {
    return codec == AV_CODEC_ID_MPEG2VIDEO || codec == AV_CODEC_ID_MPEG4;
}

std::vector<std::int64_t> times_of(const std::vector<Decoded>& frames) {
    std::vector<std::int64_t> times;
    std::transform(frames.begin(), frames.end(), std::back_inserter(times),
                   [](const Decoded& frame) { return frame.pts; });
    return times;
}

}  // namespace

class InstanceDecodeTest : public testing::TestWithParam<std::string> {};

TEST_P(InstanceDecodeTest, EveryPictureOfTheStreamThenTheEndForEver) {
    const std::string path = GetParam() == "mp4"    ? small_mp4()
                             : GetParam() == "hevc" ? fw_test::clip_hevc()
                             : GetParam() == "vp9"  ? fw_test::clip_vp9()
                             : GetParam() == "avi"  ? fw_test::clip_mpeg4_avi()
                             : GetParam() == "vfr"  ? fw_test::clip_variable_rate()
                             : GetParam() == "png"  ? fw_test::clip_png()
                             : GetParam() == "open" ? fw_test::small_open_gop()
                                                    : fw_test::small_mpeg2("m2." + GetParam());
    Reader reader(path, 0);
    const auto frames = reader.decode_all();
    const auto expected = as_decoded(reference_frames(path, 0));
    const AVCodecID codec = reader.instance.codec_context()->codec_id;
    if (fw_test::kEmulated && leaves_bits_to_the_decoder(codec)) {
        EXPECT_EQ(times_of(frames), times_of(expected));
    } else {
        EXPECT_EQ(frames, expected);
    }
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(reader.next(), AVERROR_EOF);
        EXPECT_EQ(reader.frame->buf[0], nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, InstanceDecodeTest,
                         testing::Values("mp4", "hevc", "vp9", "avi", "vfr", "png", "open", "ts",
                                         "mpg", "mkv"),
                         [](const auto& row) { return row.param; });

TEST(InstanceTest, AStreamWithoutAnyTimeIsCountedFromZero) {
    const LogCapture log;
    const std::string path = fw_test::small_raw_h264();
    Reader reader(path, 0);
    const auto frames = reader.decode_all();
    const auto expected = reference_frames(path, 0);
    ASSERT_EQ(frames.size(), expected.size());
    const std::int64_t step = av_rescale_q(1, {1, 25}, reader.instance.avstream()->time_base);
    for (std::size_t i = 0; i < frames.size(); i++) {
        EXPECT_EQ(frames[i].pts, static_cast<std::int64_t>(i) * step);
        EXPECT_EQ(frames[i].md5, expected[i].md5);
    }
    EXPECT_EQ(reader.next(), AVERROR_EOF);
    EXPECT_EQ(reader.next(), AVERROR_EOF);
    EXPECT_TRUE(log.contains("Pts lost... Jitter['h264'] cached more frames, n=10"));
}

TEST(InstanceTest, SoundComesWithoutGaps) {
    for (const std::string& path : {fw_test::clip_pcm(), fw_test::clip_flac()}) {
        Reader reader(path, 0);
        std::int64_t samples = 0;
        while (reader.next() >= 0) {
            EXPECT_EQ(
                av_rescale_q(reader.frame->pts, reader.instance.avstream()->time_base, {1, 44100}),
                samples);
            samples += reader.frame->nb_samples;
        }
        EXPECT_EQ(samples, 3 * 44100);
        EXPECT_EQ(reader.next(), AVERROR_EOF);
    }
}

TEST(InstanceTest, AFailedReadIsReportedAndReadingCanGoOn) {
    const HookScope scope;
    const LogCapture log;
    Reader reader(small_mp4(), 0);
    const auto expected = as_decoded(reference_frames(small_mp4(), 0));
    ASSERT_EQ(reader.decode(), expected[0]);
    g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR(EIO); };
    int result = 0;
    std::size_t decoded = 1;
    while ((result = reader.next()) >= 0) {
        decoded++;
    }
    EXPECT_EQ(result, AVERROR(EIO));
    ASSERT_EQ(log.texts(2), Texts{"read packet failed: " + text_of(AVERROR(EIO))});
    EXPECT_EQ(log.find("read packet failed")->tag, "bg");
    g_demux_hooks.read_packet = nullptr;
    EXPECT_EQ(reader.decode_all().size(), expected.size() - decoded);
}

TEST(InstanceTest, ARefusedPacketIsAnErrorAndDecodingCanGoOn) {
    const HookScope scope;
    Reader reader(small_mp4(), 0);
    g_demux_hooks.send_packet = [](const AVPacket*) { return AVERROR_INVALIDDATA; };
    EXPECT_EQ(reader.next(), AVERROR_INVALIDDATA);
    EXPECT_EQ(reader.packet->data, nullptr) << "the packet is not kept";
    g_demux_hooks.send_packet = nullptr;
    EXPECT_FALSE(reader.decode_all().empty());
}

TEST(InstanceTest, AnErrorOfTheDecoderWhileThereIsInputOnlyLeadsToMoreReading) {
    Reader reader(small_mp4(), 0);
    int calls = 0;
    fw_test::g_hooks.receive_frame = [&](AVCodecContext* ctx, AVFrame* frame) {
        return ++calls % 2 == 1
                   ? AVERROR_INVALIDDATA
                   : real<int(AVCodecContext*, AVFrame*)>("avcodec_receive_frame")(ctx, frame);
    };
    EXPECT_EQ(reader.decode(), as_decoded(reference_frames(small_mp4(), 0))[0]);
    EXPECT_GT(calls, 1);
    fw_test::g_hooks = fw_test::Hooks();
}

TEST(InstanceTest, AnErrorOfTheDecoderAfterTheInputEndedIsReturned) {
    const HookScope scope;
    g_demux_hooks.send_packet = [](const AVPacket*) { return 0; };
    Reader reader(small_mp4(), 0);
    fw_test::g_hooks.receive_frame = [](AVCodecContext*, AVFrame*) { return AVERROR_INVALIDDATA; };
    EXPECT_EQ(reader.next(), AVERROR_INVALIDDATA);
    fw_test::g_hooks.receive_frame = [](AVCodecContext*, AVFrame*) { return AVERROR(EAGAIN); };
    EXPECT_EQ(reader.next(), AVERROR(EAGAIN));
    fw_test::g_hooks = fw_test::Hooks();
}

TEST(InstanceTest, LostTimesAreCountedBackFromTheNextKnownOne) {
    Reader reader(small_mp4(), 0);
    const auto expected = as_decoded(reference_frames(small_mp4(), 0));
    int calls = 0;
    fw_test::g_hooks.receive_frame = [&](AVCodecContext* ctx, AVFrame* frame) {
        const int result =
            real<int(AVCodecContext*, AVFrame*)>("avcodec_receive_frame")(ctx, frame);
        if (result >= 0 && ++calls % 5 != 0) {
            frame->pts = frame->best_effort_timestamp = AV_NOPTS_VALUE;
        }
        return result;
    };
    const auto frames = reader.decode_all();
    fw_test::g_hooks = fw_test::Hooks();
    EXPECT_EQ(frames, expected);
}

TEST(InstanceTest, LostTimesAtTheEndAreCountedOnFromTheLastKnownOne) {
    Reader reader(small_mp4(), 0);
    const auto expected = as_decoded(reference_frames(small_mp4(), 0));
    int calls = 0;
    fw_test::g_hooks.receive_frame = [&](AVCodecContext* ctx, AVFrame* frame) {
        const int result =
            real<int(AVCodecContext*, AVFrame*)>("avcodec_receive_frame")(ctx, frame);
        if (result >= 0 && ++calls > 43) {
            frame->pts = frame->best_effort_timestamp = AV_NOPTS_VALUE;
        }
        return result;
    };
    const auto frames = reader.decode_all();
    fw_test::g_hooks = fw_test::Hooks();
    EXPECT_EQ(frames, expected);
    EXPECT_EQ(reader.next(), AVERROR_EOF);
}

TEST(InstanceTest, PacketsWithSeveralFramesLoseNone) {
    // Every frame is held, so that the decoder is asked again while it still has some.
    const std::string path = fw_test::clip_flac();
    Reader plain(path, 0);
    std::size_t expected = 0;
    while (plain.next() >= 0) {
        expected++;
    }
    Reader reader(path, 0);
    const LogCapture quiet;
    fw_test::g_hooks.receive_frame = [](AVCodecContext* ctx, AVFrame* frame) {
        const int result =
            real<int(AVCodecContext*, AVFrame*)>("avcodec_receive_frame")(ctx, frame);
        frame->pts = frame->best_effort_timestamp = AV_NOPTS_VALUE;
        return result;
    };
    std::size_t frames = 0;
    while (reader.next() >= 0) {
        frames++;
    }
    fw_test::g_hooks = fw_test::Hooks();
    EXPECT_EQ(frames, expected);
}

// Subtitles

std::string ass_clip() {
    const std::string events = make_file("styled.srt",
                                         "1\n00:00:00,500 --> 00:00:01,000\nFirst line\n\n"
                                         "2\n00:00:01,250 --> 00:00:02,000\nSecond\n\n");
    return make_clip("ass.mkv", fw_test::small_video() + "-i '" + events +
                                    "' -map 0:v -map 1:s -c:s ass " + fw_test::kSmallH264);
}

TEST(InstanceTest, DecodesTheEventsOfASubtitleStream) {
    Reader reader(ass_clip(), 1);
    Texts lines;
    AVSubtitle subtitle{};
    int result = 0;
    while ((result = reader.instance.get_subtitle(reader.packet.get(), &subtitle)) >= 0) {
        ASSERT_EQ(subtitle.num_rects, 1U);
        const std::string line = subtitle.rects[0]->ass;
        lines.push_back(line.substr(line.rfind(',') + 1));
        avsubtitle_free(&subtitle);
    }
    EXPECT_EQ(result, AVERROR_EOF);
    EXPECT_EQ(lines, (Texts{"First line", "Second"}));
}

TEST(InstanceTest, TheHeaderOfStyledSubtitlesIsTheDecoders) {
    const Reader styled(ass_clip(), 1);
    const auto* const header = reinterpret_cast<const char*>(styled.instance.get_subtitle_header());
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(std::string(header).substr(0, 13), "[Script Info]");
    const Reader pictures(small_mp4(), 0);
    EXPECT_EQ(pictures.instance.get_subtitle_header(), nullptr);
}

TEST(InstanceTest, APacketWithoutAnEventGivesMinusOne) {
    const HookScope scope;
    Reader reader(ass_clip(), 1);
    g_demux_hooks.read_packet = [](AVPacket* packet) {
        packet->stream_index = 1;
        return 0;
    };
    AVSubtitle subtitle{};
    EXPECT_EQ(reader.instance.get_subtitle(reader.packet.get(), &subtitle), -1);
}

}  // namespace
