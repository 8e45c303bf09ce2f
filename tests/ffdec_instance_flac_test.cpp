#include "ffdec_instance_flac.h"

#include "media/ff_handles.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace ff {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct FreeParameters {
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};

using ParametersPtr = std::unique_ptr<AVCodecParameters, FreeParameters>;

/// A stream of FLAC with the given smallest and largest block.
ParametersPtr parameters_of(int smallest, int largest, const Bytes& before = {}) {
    ParametersPtr parameters(avcodec_parameters_alloc());
    Bytes info = before;
    info.resize(before.size() + 34);
    std::uint8_t* const blocks = info.data() + before.size();
    blocks[0] = static_cast<std::uint8_t>(smallest >> 8);
    blocks[1] = static_cast<std::uint8_t>(smallest & 0xFF);
    blocks[2] = static_cast<std::uint8_t>(largest >> 8);
    blocks[3] = static_cast<std::uint8_t>(largest & 0xFF);
    parameters->codec_id = AV_CODEC_ID_FLAC;
    parameters->sample_rate = 44100;
    parameters->extradata =
        static_cast<std::uint8_t*>(av_mallocz(info.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(parameters->extradata, info.data(), info.size());
    parameters->extradata_size = static_cast<int>(info.size());
    return parameters;
}

PacketPtr packet_of(const Bytes& bytes) {
    PacketPtr packet(av_packet_alloc());
    EXPECT_GE(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
    std::memcpy(packet->data, bytes.data(), bytes.size());
    return packet;
}

std::int64_t start_of(const Bytes& frame, const AVCodecParameters& parameters) {
    return flac_frame_start(*packet_of(frame), parameters);
}

/// The head of a frame that counts frames (second byte F8) or samples (F9), with this number.
Bytes head(std::uint8_t second, const Bytes& number) {
    Bytes bytes{0xFF, second, 0xC9, 0x18};
    for (const std::uint8_t byte : number) {
        bytes.push_back(byte);
    }
    bytes.push_back(0x42);  // a checksum, which the demuxer has looked at
    return bytes;
}

struct Row {
    const char* name;
    Bytes number;
    std::int64_t value;
};

class FlacNumberTest : public testing::TestWithParam<Row> {};

TEST_P(FlacNumberTest, IsReadFromOneToSevenBytes) {
    EXPECT_EQ(start_of(head(0xF9, GetParam().number), *parameters_of(16, 65535)), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FlacNumberTest,
    testing::Values(Row{"Zero", {0x00}, 0}, Row{"OneByte", {0x7F}, 127},
                    Row{"TwoBytes", {0xC2, 0x80}, 128}, Row{"TwoBytesFull", {0xDF, 0xBF}, 2047},
                    Row{"ThreeBytes", {0xE0, 0xA0, 0x80}, 2048},
                    Row{"FourBytes", {0xF0, 0x90, 0x80, 0x80}, 65536},
                    Row{"FiveBytes", {0xF8, 0x88, 0x80, 0x80, 0x80}, 2097152},
                    Row{"SixBytes", {0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}, 67108864},
                    Row{"SevenBytes", {0xFE, 0x82, 0x80, 0x80, 0x80, 0x80, 0x80}, 2147483648},
                    Row{"SevenBytesFull", {0xFE, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF}, 68719476735},
                    Row{"NoSuchLength", {0xFF, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80}, -1},
                    Row{"BrokenTail", {0xE0, 0x20, 0x80}, -1}, Row{"TailWithoutHead", {0x80}, -1}),
    [](const auto& row) { return row.param.name; });

TEST(FlacFrameStartTest, CountsFramesOfOneSize) {
    EXPECT_EQ(start_of(head(0xF8, {0x05}), *parameters_of(4608, 4608)), 5 * 4608);
}

TEST(FlacFrameStartTest, FindsTheBlockSizeBehindTheHeadOfANativeFile) {
    const Bytes native{'f', 'L', 'a', 'C', 0x80, 0, 0, 34};
    EXPECT_EQ(start_of(head(0xF8, {0x05}), *parameters_of(4096, 4096, native)), 5 * 4096);
}

TEST(FlacFrameStartTest, IsUnknownWhereFramesAreCountedButNotOfOneSize) {
    EXPECT_EQ(start_of(head(0xF8, {0x05}), *parameters_of(16, 4608)), -1);
    EXPECT_EQ(start_of(head(0xF8, {0x05}), *parameters_of(0, 0)), -1);
    const ParametersPtr nothing(avcodec_parameters_alloc());
    EXPECT_EQ(start_of(head(0xF8, {0x05}), *nothing), -1);
}

TEST(FlacFrameStartTest, IsUnknownWithoutAFrame) {
    const ParametersPtr parameters = parameters_of(4608, 4608);
    const PacketPtr empty(av_packet_alloc());
    EXPECT_EQ(flac_frame_start(*empty, *parameters), -1);
    EXPECT_EQ(start_of({0xFF, 0xF8, 0xC9, 0x18}, *parameters), -1) << "cut before the number";
    EXPECT_EQ(start_of({0xFF, 0xF8, 0xC9, 0x18, 0xFE, 0x80}, *parameters), -1) << "cut in it";
    EXPECT_EQ(start_of({0x7F, 'F', 'L', 'A', 'C', 1, 0}, *parameters), -1) << "a header of Ogg";
}

/// A format and a stream as FlacClock sees them.
struct Scene {
    explicit Scene(const char* format_name, AVCodecID codec = AV_CODEC_ID_FLAC)
        : parameters(parameters_of(4608, 4608)) {
        format->iformat = av_find_input_format(format_name);
        stream = avformat_new_stream(format.get(), nullptr);
        parameters->codec_id = codec;
        EXPECT_GE(avcodec_parameters_copy(stream->codecpar, parameters.get()), 0);
        stream->time_base = {1, 44100};
        clock.start(*format, *stream);
    }

    /// What the time of a frame becomes.
    std::int64_t corrected(std::uint8_t number, std::int64_t pts) {
        const PacketPtr packet = packet_of(head(0xF8, {number}));
        packet->pts = packet->dts = pts;
        clock.correct(packet.get());
        EXPECT_EQ(packet->dts, packet->pts);
        return packet->pts;
    }

    // Freed, not closed: it was never opened.
    std::unique_ptr<AVFormatContext, FreeByPointer<avformat_free_context>> format{
        avformat_alloc_context()};
    AVStream* stream = nullptr;
    ParametersPtr parameters;
    FlacClock clock;
};

TEST(FlacClockTest, BelievesTheFirstPacketAndThenTheFrames) {
    Scene scene("ogg");
    EXPECT_EQ(scene.corrected(2, 3 * 4608), 3 * 4608);
    EXPECT_EQ(scene.corrected(60, 999), 61 * 4608);
    EXPECT_EQ(scene.corrected(2, AV_NOPTS_VALUE), 3 * 4608);
}

TEST(FlacClockTest, LeavesOtherContainersAndCodecsAlone) {
    EXPECT_FALSE(Scene("wav").clock.is_running());
    EXPECT_FALSE(Scene("flac").clock.is_running());
    EXPECT_FALSE(Scene("ogg", AV_CODEC_ID_VORBIS).clock.is_running());
    EXPECT_TRUE(Scene("ogg").clock.is_running());
}

TEST(FlacClockTest, GivesUpWhenTheFirstPacketHasNoTime) {
    Scene scene("ogg");
    EXPECT_EQ(scene.corrected(0, AV_NOPTS_VALUE), AV_NOPTS_VALUE);
    EXPECT_EQ(scene.corrected(60, 999), 999);
}

TEST(FlacClockTest, LeavesTimesAloneThatWouldOverflow) {
    Scene scene("ogg");
    EXPECT_EQ(scene.corrected(0, std::numeric_limits<std::int64_t>::max() - 1),
              std::numeric_limits<std::int64_t>::max() - 1);
    EXPECT_EQ(scene.corrected(60, 999), 999);
}

}  // namespace
}  // namespace ff
