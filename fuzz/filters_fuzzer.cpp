// Filter descriptions on tiny streams without compression. The first byte picks picture or sound
// and the speed, the rest is the description.

#include "byte_script.h"
#include "expect.h"
#include "media_input.h"

extern "C" {
#include <libavfilter/avfilter.h>
}

#include <framewell/ffdecoder2.h>
#include <framewell/movie_info.h>
#include <framewell/utils/mempool.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>

namespace {

using ff::StreamType;
using fuzz::ByteScript;
using fuzz::expect;

constexpr int kPictures = 12;
constexpr int kSamples = 4000;

// Filters that neither open files, devices or connections nor compute for minutes. Between them
// they change what a frame is, its time, and how many there are.
constexpr const char* kHarmless[] = {
    "null",      "anull",      "hflip",    "vflip",     "scale",   "crop",    "pad",
    "transpose", "fps",        "setpts",   "asetpts",   "trim",    "atrim",   "atempo",
    "volume",    "aresample",  "format",   "aformat",   "split",   "asplit",  "overlay",
    "hstack",    "amix",       "concat",   "select",    "aselect", "reverse", "areverse",
    "tile",      "framestep",  "adelay",   "pan",       "amerge",  "afade",   "fade",
    "setsar",    "negate",     "nullsink", "anullsink", "settb",   "asettb",  "asetnsamples",
    "asetrate",  "channelmap", "telecine", "rotate"};

bool is_harmless(const std::string& name) {
    return std::any_of(std::begin(kHarmless), std::end(kHarmless),
                       [&name](const char* harmless) { return name == harmless; });
}

bool is_word(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

/// Whether no word of `text`, as it is once quotes are gone, names another filter, and no number or
/// function makes libavfilter itself compute without end.
bool can_be_tried(std::string text) {
    const auto is_quote = [](char c) { return c == '\'' || c == '\\'; };
    text.erase(std::remove_if(text.begin(), text.end(), is_quote), text.end());
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = static_cast<std::size_t>(
            std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(begin), text.end(),
                             is_word) -
            text.begin());
        const std::string word = text.substr(begin, end - begin);
        if (avfilter_get_by_name(word.c_str()) != nullptr && !is_harmless(word)) {
            return false;
        }
        // Thousands are enough; loops of expressions have no limit of their own.
        constexpr std::size_t most_digits = 4;
        const bool is_number = !word.empty() && std::isdigit(static_cast<unsigned char>(word[0]));
        if ((is_number && word.size() > most_digits) || word == "while" || word == "taylor" ||
            word == "root" || word == "print") {
            return false;
        }
        begin = std::max(end, begin + 1);
    }
    return true;
}

const ff::StreamCtx* probed(const fuzz::OneFile& file, StreamType type) {
    const ff::StreamCtx* const stream = ff::first_stream(ff::getMovieInfo(file.path()), type);
    expect(stream != nullptr, "a plain file can be probed");
    return stream;
}

const ff::StreamCtx* video_source() {
    static const fuzz::OneFile s_file(fuzz::plain_video(kPictures));
    static const ff::StreamCtx* const s_stream = probed(s_file, StreamType::Video);
    return s_stream;
}

const ff::StreamCtx* sound_source() {
    static const fuzz::OneFile s_file(fuzz::plain_sound(kSamples));
    static const ff::StreamCtx* const s_stream = probed(s_file, StreamType::Audio);
    return s_stream;
}

void check_combining(const std::string& text, double speed) {
    for (const StreamType type : {StreamType::Video, StreamType::Audio, StreamType::None}) {
        const bool has_tempo = type == StreamType::Audio && speed != 1.0;
        const bool is_none = text.empty() || text == "null" || text == "anull";
        const std::string user = is_none ? "" : text;
        char tempo[64] = "";
        if (has_tempo) {
            (void)std::snprintf(tempo, sizeof tempo, "atempo=%f%s", speed, is_none ? "" : ", ");
        }
        constexpr std::size_t longest = 1023;
        expect(ff::combineFilters(type, text, speed) == (tempo + user).substr(0, longest),
               "the description is the tempo and what the user wants");
    }
}

std::shared_ptr<ff::VFrameCtx> picture(ff::FFDecoder2& decoder, std::int64_t number) {
    ff::RequireVideoFrame req;
    req.time = {number, 25};
    req.format = ff::PixelFormat::Yuv420p;
    return decoder.getVideoFrame(req);
}

std::shared_ptr<ff::AFrameCtx> sound(ff::FFDecoder2& decoder, std::int64_t from, std::int64_t to) {
    ff::RequireAudioFrame req;
    req.range = {{from, 8000}, {to, 8000}};
    req.sample_rate = 8000;
    return decoder.getAudioFrame(req);
}

void try_on_pictures(const std::string& text, double speed) {
    ff::FFDecoder2 decoder;
    expect(decoder.open(video_source()), "a plain stream can be opened");
    (void)decoder.setFilters(text.c_str());  // mostly refused
    for (const int number : {3, 4, 5, 0, 99}) {
        (void)picture(decoder, number);
    }
    (void)decoder.setSpeed(speed);
    (void)picture(decoder, 2);
    expect(decoder.setFilters(nullptr) && decoder.setSpeed(1.0), "filters can be taken away");
    const auto plain = picture(decoder, 7);
    expect(plain != nullptr && plain->width == 32 && plain->height == 16 && plain->pts == 280000 &&
               plain->data[0][0] == 16 + 9 * 7,
           "pictures are plain again without filters");
}

void try_on_sound(const std::string& text, double speed) {
    ff::FFDecoder2 decoder;
    expect(decoder.open(sound_source()), "a plain stream can be opened");
    (void)decoder.setFilters(text.c_str());
    for (const int from : {0, 400, 800, 3000, 3900}) {
        (void)sound(decoder, from, from + 400);
    }
    (void)decoder.setSpeed(speed);
    (void)sound(decoder, 100, 900);
    (void)sound(decoder, 900, 1700);
    expect(decoder.setFilters("") && decoder.setSpeed(1.0), "filters can be taken away");
    const auto plain = sound(decoder, 1000, 1800);
    expect(plain != nullptr && plain->nb_samples == 800, "sound is whole again without filters");
    const auto* const samples = reinterpret_cast<const std::int16_t*>(plain->data[0]);
    for (int i = 0; i < plain->nb_samples; ++i) {
        expect(samples[std::ptrdiff_t{2} * i] == static_cast<std::int16_t>((1000 + i) * 37),
               "sound is plain again without filters");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr double speeds[] = {1.0, 2.0, 0.5, 3.0, 1.37, 0.75, 0.1, -1.0};
    ByteScript script(data, size);
    const std::uint8_t kind = script.byte();
    const double speed = speeds[kind / 2 % 8];
    const std::string text = fuzz::up_to_nul(script.rest());
    check_combining(text, speed);
    if (!can_be_tried(text)) {
        return -1;  // of no use for more inputs
    }
    if (kind % 2 == 0) {
        try_on_pictures(text, speed);
    } else {
        try_on_sound(text, speed);
    }
    (void)ff::mem_collection(0);  // idle buffers, each input of other sizes, would add up
    return 0;
}
