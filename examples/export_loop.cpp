// Writes every picture of FILE in order to standard output, as a YUV4MPEG stream that encoders read
// from a pipe, and its sound as bare 16-bit stereo at 48000 Hz into OUT.raw:
// export_loop FILE OUT.raw > pictures.y4m
#include <framewell/framewell.h>

#include <cstddef>
#include <cstdio>

namespace {

constexpr int kRate = 48000;

void write_plane(const ff::VFrameCtx& picture, int plane, int width, int height) {
    for (int y = 0; y < height; y++) {
        std::fwrite(picture.data[plane] + std::ptrdiff_t{y} * picture.linesize[plane], 1,
                    static_cast<std::size_t>(width), stdout);
    }
}

bool write_picture(const ff::VFrameCtx& picture) {
    const int half_width = (picture.width + 1) / 2;
    const int half_height = (picture.height + 1) / 2;
    std::printf("FRAME\n");
    write_plane(picture, 0, picture.width, picture.height);
    write_plane(picture, 1, half_width, half_height);
    write_plane(picture, 2, half_width, half_height);
    return std::ferror(stdout) == 0;  // such as a pipe that nobody reads any more
}

// [loop]
/// Picture n of the output is shown from n / rate to (n + 1) / rate. Asked for by these fractions,
/// every picture of a stream with a constant rate comes once, and the spans of sound fit together
/// to the sample.
bool export_all(ff::FFDecoder* video, ff::FFDecoder* audio, ff::Rational rate, ff::Rational length,
                std::FILE* sound) {
    ff::RequireVideoFrame picture_request;
    picture_request.format = ff::PixelFormat::Yuv420p;
    ff::RequireAudioFrame sound_request;
    sound_request.sample_rate = kRate;
    for (int n = 0; ff::Rational{n, 1} / rate < length; n++) {
        picture_request.time = ff::Rational{n, 1} / rate;
        const auto picture = video->getVideoFrame(picture_request);
        if (!picture || !write_picture(*picture)) {
            return false;
        }
        if (audio->isOpened()) {
            sound_request.range = {picture_request.time, ff::Rational{n + 1, 1} / rate};
            if (const auto span = audio->getAudioFrame(sound_request)) {
                std::fwrite(span->data[0], 4, static_cast<std::size_t>(span->nb_samples), sound);
            }
        }
    }
    return std::ferror(sound) == 0;
}

// [loop]

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: export_loop FILE OUT.raw > pictures.y4m\n");
        return 2;
    }
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    const ff::StreamCtx* const stream = ff::first_stream(movie, ff::StreamType::Video);
    ff::FFDecoder video;
    ff::FFDecoder audio;
    if (!video.open(stream) || stream->frame_rate.num <= 0 || movie->duration <= 0) {
        return 1;
    }
    if (const ff::StreamCtx* const sound = ff::first_stream(movie, ff::StreamType::Audio)) {
        audio.open(sound);  // without sound, OUT.raw stays empty
    }
    std::FILE* const sound = std::fopen(argv[2], "wb");
    if (sound == nullptr) {
        return 1;
    }
    std::printf("YUV4MPEG2 W%d H%d F%lld:%lld Ip C420jpeg\n", stream->width, stream->height,
                static_cast<long long>(stream->frame_rate.num),
                static_cast<long long>(stream->frame_rate.den));
    const bool is_complete =
        export_all(&video, &audio, stream->frame_rate, {movie->duration, 1000000}, sound);
    return std::fclose(sound) == 0 && is_complete ? 0 : 1;
}
