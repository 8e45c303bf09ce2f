// What is in a file: the input is the file.

#include "expect.h"
#include "media_input.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

using ff::StreamType;
using fuzz::expect;

void check_stream(const ff::MovieCtx& movie, const ff::StreamCtx& stream) {
    expect(stream.movie == &movie && stream.index >= 0, "a stream belongs to its file");
    expect(ff::stream_by_index(&movie, stream.index) == &stream, "a stream is found by its number");
    switch (stream.type) {
        case StreamType::Video:
            expect(stream.width >= 0 && stream.height >= 0, "a picture has no negative size");
            break;
        case StreamType::Audio:
            expect(stream.channels >= 0 && stream.sample_rate >= 0, "sound has no negative rate");
            break;
        case StreamType::Subtitle:
            for (const ff::Subtitle& subtitle : stream.subtitles) {
                expect(subtitle.end == subtitle.start, "the end of a subtitle is not known");
            }
            break;
        default:
            expect(false, "a stream is of one of three kinds");
    }
}

void check_movie(const ff::MovieCtx& movie, const char* path) {
    expect(std::strcmp(movie.path, path) == 0, "a record knows its file");
    expect(movie.nb_streams >= 0 && movie.nb_streams <= ff::MovieCtx::kMaxStreams,
           "there is room for the streams");
    expect(movie.nb_audio >= 0 && movie.nb_audio <= ff::MovieCtx::kMaxPerKind &&
               movie.nb_video >= 0 && movie.nb_video <= ff::MovieCtx::kMaxPerKind &&
               movie.nb_subtitle >= 0 && movie.nb_subtitle <= ff::MovieCtx::kMaxPerKind,
           "there is room for the streams of each kind");
    for (int i = 0; i < movie.nb_streams; ++i) {
        check_stream(movie, *movie.streams[i]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::OneFile file(std::string(reinterpret_cast<const char*>(data), size));
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(file.path());
    if (movie != nullptr) {
        check_movie(*movie, file.path());
    }
    expect(ff::getMovieInfo(file.path()) == movie, "a file is probed once");
    return 0;
}
