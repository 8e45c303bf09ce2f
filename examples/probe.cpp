// Prints what is in each file: probe FILE...
#include <framewell/framewell.h>

#include <cstdint>
#include <iostream>

namespace {

void print_video(const ff::StreamCtx& stream) {
    std::cout << "video, " << stream.width << "x" << stream.height;
    if (stream.single_frame) {
        std::cout << ", a still";
    } else {
        std::cout << ", " << stream.frame_rate.num << "/" << stream.frame_rate.den
                  << " pictures per second";
    }
    if (stream.rotation != 0) {
        std::cout << ", to be turned by " << stream.rotation << " degrees";
    }
}

void print_stream(const ff::StreamCtx& stream) {
    std::cout << "  stream " << stream.index << ": ";
    switch (stream.type) {
        case ff::StreamType::Video:
            print_video(stream);
            break;
        case ff::StreamType::Audio:
            std::cout << "audio, " << stream.sample_rate << " Hz, " << stream.channels
                      << " channels";
            break;
        case ff::StreamType::Subtitle:
            std::cout << "subtitles, " << stream.subtitles.size() << " events";
            break;
        case ff::StreamType::None:
            std::cout << "unknown";
            break;
    }
    std::cout << ", tick of " << stream.time_base.num << "/" << stream.time_base.den << " s\n";
}

void print_movie(const ff::MovieCtx& movie) {
    std::cout << movie.path << ": ";
    if (movie.duration == INT64_MIN) {
        std::cout << "unknown duration\n";
    } else {
        std::cout << static_cast<double>(movie.duration) / 1e6 << " s\n";
    }
    for (int i = 0; i < movie.nb_streams; i++) {
        print_stream(*movie.streams[i]);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: probe FILE...\n";
        return 2;
    }
    int failures = 0;
    for (int i = 1; i < argc; i++) {
        // The record belongs to the library and lives as long as the process.
        const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[i]);
        if (movie != nullptr) {
            print_movie(*movie);
        } else {
            std::cerr << argv[i] << ": cannot be opened\n";
            failures++;
        }
    }
    return failures == 0 ? 0 : 1;
}
