#include "tests/robustness/known_media.h"

#include "tests/public/exactness_check.h"
#include "tests/support/media.h"

#include <framewell/ffdecoder.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <memory>
#include <stdexcept>

namespace fw_test {

namespace {

constexpr ff::Rational kMicroseconds{1, 1000000};
constexpr std::size_t kMaxTenths = 100;

std::string name_of(const KnownStream& stream) {
    return std::string(stream.record->movie->path) + ", stream " +
           std::to_string(stream.record->index);
}

void learn_pictures(KnownStream* stream) {
    const ff::StreamCtx& record = *stream->record;
    for (const ReferenceFrame& frame : reference_frames(record.movie->path, record.index)) {
        if (!stream->pictures.empty()) {
            stream->pictures.back().until = frame.pts;
        }
        stream->pictures.push_back({frame.pts, frame.pts + 1,
                                    ff::rescale_q(frame.pts, record.time_base, kMicroseconds),
                                    frame.md5});
    }
    ff::FFDecoder decoder;
    (void)decoder.open(&record);  // else every picture is missing
    for (KnownPicture& picture : stream->pictures) {
        const auto got = decoder.getVideoFrame(known_picture_at(*stream, picture.from));
        const std::string md5 = md5_of_picture(got.get());
        const bool is_comparable = record.pix_fmt == AV_PIX_FMT_YUV420P;
        if (got == nullptr || (is_comparable && md5 != picture.md5)) {
            throw std::runtime_error("cannot be used, a picture differs from the reference: " +
                                     name_of(*stream) + ", tick " + std::to_string(picture.from));
        }
        picture.pts_us = got->pts;
        picture.md5 = md5;
    }
}

void learn_sound(KnownStream* stream) {
    ff::FFDecoder decoder;
    (void)decoder.open(stream->record);  // else there is none
    for (std::size_t number = 0; number < kMaxTenths; ++number) {
        const auto sound = decoder.getAudioFrame(known_tenth(*stream, number));
        if (sound == nullptr || sound->nb_samples < stream->record->sample_rate / 10) {
            break;  // the last one may be short
        }
        stream->tenths.push_back(md5_of_sound(sound.get()));
    }
    if (stream->tenths.empty()) {
        throw std::runtime_error("cannot be used, no sound comes from " + name_of(*stream));
    }
}

}  // namespace

std::vector<KnownStream> learn_streams(const std::vector<std::string>& paths) {
    std::vector<KnownStream> streams;
    for (const std::string& path : paths) {
        const ff::MovieCtx* const movie = ff::FFDecoder::probe(path.c_str(), nullptr);
        for (const ff::StreamType type : {ff::StreamType::Video, ff::StreamType::Audio}) {
            KnownStream stream;
            stream.record = ff::first_stream(movie, type);
            if (stream.record == nullptr) {
                continue;
            }
            if (stream.is_video()) {
                learn_pictures(&stream);
            } else {
                learn_sound(&stream);
            }
            streams.push_back(std::move(stream));
        }
        if (movie == nullptr) {
            throw std::runtime_error("cannot be used: " + path);
        }
    }
    return streams;
}

ff::RequireVideoFrame known_picture_at(const KnownStream& stream, std::int64_t at) {
    return request_for(movie_time(*stream.record, at), "yuv420p");
}

ff::RequireAudioFrame known_tenth(const KnownStream& stream, std::size_t number) {
    const auto tenth = static_cast<std::int64_t>(number);
    ff::RequireAudioFrame request;
    request.range = {{tenth, 10}, {tenth + 1, 10}};
    request.format = ff::SampleFormat::S16;
    request.sample_rate = stream.record->sample_rate;
    request.channels = stream.record->channels;
    return request;
}

std::string md5_of_picture(const ff::VFrameCtx* picture) {
    return picture != nullptr ? md5_of(*picture, "yuv420p") : "none";
}

std::string md5_of_sound(const ff::AFrameCtx* sound) {
    return sound != nullptr && sound->nb_samples > 0
               ? md5_hex(sound->data[0], static_cast<std::size_t>(sound->size))
               : "none";
}

std::vector<std::string> differences_in_order(const KnownStream& stream, std::size_t step) {
    std::vector<std::string> differences;
    ff::FFDecoder decoder;
    (void)decoder.open(stream.record);  // else everything is missing, and told
    for (std::size_t i = 0; i < stream.pictures.size(); i += step) {
        const KnownPicture& known = stream.pictures[i];
        const auto got = decoder.getVideoFrame(known_picture_at(stream, known.from));
        if (got == nullptr || got->pts != known.pts_us || md5_of_picture(got.get()) != known.md5) {
            differences.push_back(name_of(stream) + ": picture " + std::to_string(i) + " differs");
        }
    }
    // A run of sound is cut out of one decode: every tenth has to be asked for.
    for (std::size_t i = 0; i < stream.tenths.size(); ++i) {
        const auto got = decoder.getAudioFrame(known_tenth(stream, i));
        if (md5_of_sound(got.get()) != stream.tenths[i]) {
            differences.push_back(name_of(stream) + ": tenth " + std::to_string(i) + " differs");
        }
    }
    return differences;
}

}  // namespace fw_test
