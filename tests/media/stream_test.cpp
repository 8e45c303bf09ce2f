#include <framewell/media/stream.h>

#include <gtest/gtest.h>

namespace {

using ff::StreamType;

// A file whose stream 0 has no record: audio is stream 1, two videos are 2 and 5.
struct StreamTest : testing::Test {
    StreamTest() {
        audio.index = 1;
        audio.type = StreamType::Audio;
        video.index = 2;
        video.type = StreamType::Video;
        second_video.index = 5;
        second_video.type = StreamType::Video;
        movie.streams[0] = &audio;
        movie.streams[1] = &video;
        movie.streams[2] = &second_video;
        movie.nb_streams = 3;
    }

    ff::StreamCtx audio, video, second_video;
    ff::MovieCtx movie;
};

TEST_F(StreamTest, FindsTheFirstRecordOfAKind) {
    EXPECT_EQ(ff::first_stream(&movie, StreamType::Video), &video);
    EXPECT_EQ(ff::first_stream(&movie, StreamType::Audio), &audio);
    EXPECT_EQ(ff::first_stream(&movie, StreamType::Subtitle), nullptr);
}

TEST_F(StreamTest, FindsARecordByTheNumberInTheFile) {
    EXPECT_EQ(ff::stream_by_index(&movie, 1), &audio);
    EXPECT_EQ(ff::stream_by_index(&movie, 5), &second_video);
    for (const int missing : {-1, 0, 3, 6, 2147483647}) {
        EXPECT_EQ(ff::stream_by_index(&movie, missing), nullptr);
    }
}

TEST_F(StreamTest, AMissingMovieHasNoStreams) {
    EXPECT_EQ(ff::first_stream(nullptr, StreamType::Video), nullptr);
    EXPECT_EQ(ff::stream_by_index(nullptr, 0), nullptr);
}

TEST_F(StreamTest, SkipsMissingRecordsAndNeverLooksBeyondTheArray) {
    movie.streams[1] = nullptr;
    EXPECT_EQ(ff::first_stream(&movie, StreamType::Video), &second_video);
    movie.nb_streams = 1000;
    EXPECT_EQ(ff::stream_by_index(&movie, 77), nullptr);
    movie.nb_streams = -1;
    EXPECT_EQ(ff::stream_by_index(&movie, 1), nullptr);
}

TEST_F(StreamTest, NewRecordsDescribeNothing) {
    const ff::StreamCtx stream;
    EXPECT_EQ(stream.type, StreamType::None);
    EXPECT_EQ(stream.index, -1);
    EXPECT_EQ(stream.movie, nullptr);
    EXPECT_EQ(stream.pix_fmt, -1);
    EXPECT_EQ(ff::MovieCtx{}.nb_streams, 0);
}

}  // namespace
