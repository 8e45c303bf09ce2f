// What it costs to get to know a file: opening and probing it, and probing it again.

#include "clips.h"
#include "comparison.h"
#include "fresh_names.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kOpenings = 8;      // per measurement
constexpr int kLookUps = 100000;  // per measurement

/// What a program has to do at least before it can decode a file's pictures.
bool open_bare(const std::string& path) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) {
        return false;
    }
    AVCodecContext* codec = nullptr;
    bool ok = avformat_find_stream_info(format, nullptr) >= 0;
    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (ok && index >= 0) {
        const AVCodecParameters* const parameters = format->streams[index]->codecpar;
        decoder = avcodec_find_decoder(parameters->codec_id);
        codec = avcodec_alloc_context3(decoder);
        if (codec != nullptr) {
            codec->thread_count = 0;
            ok = avcodec_parameters_to_context(codec, parameters) >= 0 &&
                 avcodec_open2(codec, decoder, nullptr) >= 0;
        }
    }
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    return ok && decoder != nullptr;
}

bool open_and_probe(const std::string& path) {
    const ff::StreamCtx* const stream =
        ff::first_stream(ff::FFDecoder::probe(path.c_str()), ff::StreamType::Video);
    ff::FFDecoder decoder;
    return decoder.open(stream);
}

bench::Side for_each_name(const std::shared_ptr<bench::FreshNames>& names,
                          const std::string& target, bool (*open)(const std::string&)) {
    return [names, target, open](benchmark::State& state) {
        std::vector<std::string> fresh;
        fresh.reserve(kOpenings);
        for (int i = 0; i < kOpenings; ++i) {
            fresh.push_back(names->next(target));
        }
        for ([[maybe_unused]] auto _ : state) {
            for (const std::string& path : fresh) {
                if (!open(path)) {
                    state.SkipWithError("cannot open the clip");
                    return;
                }
            }
        }
    };
}

bench::Row opening_row(const bench::Clip& clip) {
    const auto names = std::make_shared<bench::FreshNames>();
    const std::string target = bench::path_of(clip);
    return {"open/" + clip.name,
            clip.title + ": probe and open",
            bench::Judge::Ratio,
            7,
            kOpenings,
            1,
            for_each_name(names, target, open_and_probe),
            for_each_name(names, target, open_bare)};
}

bench::Row second_probe_row() {
    const std::string path = bench::path_of(bench::all_clips().front());
    const auto look_up = [path](benchmark::State& state) {
        (void)ff::FFDecoder::probe(path.c_str());
        for ([[maybe_unused]] auto _ : state) {
            benchmark::DoNotOptimize(ff::FFDecoder::probe(path.c_str()));
        }
    };
    return {"probe_again",
            "probe of a path probed before",
            bench::Judge::Alone,
            10000,
            1,
            kLookUps,
            look_up,
            nullptr};
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<bench::Row> rows;
    for (const bench::Clip& clip : bench::all_clips()) {
        rows.push_back(opening_row(clip));
    }
    rows.push_back(second_probe_row());
    return bench::compare(argc, argv, rows);
}
