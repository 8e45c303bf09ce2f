#include "commands.h"
#include "ffmpeg_facts.h"
#include "media_file.h"

#include <framewell/media/rational.h>
#include <framewell/media/stream.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>

namespace tool {

namespace {

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();

Json number_or_null(std::int64_t value, std::int64_t unknown) {
    return value == unknown ? Json(nullptr) : Json(value);
}

Json name_or_null(const char* name) {
    return name == nullptr ? Json(nullptr) : Json(name);
}

std::string fraction_text(const ff::Rational& value) {
    return std::to_string(value.num) + "/" + std::to_string(value.den);
}

void add_video(const ff::StreamCtx& stream, Json& object) {
    object["width"] = stream.width;
    object["height"] = stream.height;
    object["codec_pix_fmt"] = name_or_null(pixel_format_name(stream.codec_pix_fmt));
    object["hw_pix_fmt"] = name_or_null(pixel_format_name(stream.hw_pix_fmt));
    object["pix_fmt"] = name_or_null(pixel_format_name(stream.pix_fmt));
    object["rotation"] = stream.rotation;
    object["single_frame"] = stream.single_frame;
    object["sample_aspect_ratio"] = fraction_text(stream.sample_aspect_ratio);
    object["frame_rate"] = fraction_text(stream.frame_rate);
}

void add_audio(const ff::StreamCtx& stream, Json& object) {
    object["channels"] = stream.channels;
    object["sample_rate"] = stream.sample_rate;
    object["sample_fmt"] = name_or_null(sample_format_name(stream.sample_fmt));
    object["channel_layout"] = stream.channel_layout;
}

void add_subtitles(const ff::StreamCtx& stream, Json& object) {
    Json list = Json::array();
    for (const ff::Subtitle& subtitle : stream.subtitles) {
        Json event;
        event["start_us"] = subtitle.start;
        event["end_us"] = subtitle.end;
        event["text"] = subtitle.text;
        list.push_back(std::move(event));
    }
    object["subtitles"] = std::move(list);
}

Json stream_json(const ff::StreamCtx& stream) {
    Json object;
    object["index"] = stream.index;
    object["type"] = kind_name(stream.type);
    object["time_base"] = fraction_text(stream.time_base);
    object["start_time"] = number_or_null(stream.start_time, kUnknown);
    object["duration"] = number_or_null(stream.duration, kUnknown);
    if (stream.type == ff::StreamType::Video) {
        add_video(stream, object);
    } else if (stream.type == ff::StreamType::Audio) {
        add_audio(stream, object);
    } else if (stream.type == ff::StreamType::Subtitle) {
        add_subtitles(stream, object);
    }
    return object;
}

Json index_json(const std::uint8_t* numbers, int count) {
    Json list = Json::array();
    for (int i = 0; i < count; ++i) {
        list.push_back(numbers[i]);
    }
    return list;
}

Json movie_json(const std::string& path, const ff::MovieCtx& movie) {
    Json object;
    object["path"] = path;
    object["start_time_us"] = number_or_null(movie.start_time, kUnknown);
    object["duration_us"] = number_or_null(movie.duration, kUnknown);
    object["bit_rate"] = number_or_null(movie.bit_rate, 0);
    Json streams = Json::array();
    for (int i = 0; i < movie.nb_streams; ++i) {
        streams.push_back(stream_json(*movie.streams[i]));
    }
    object["streams"] = std::move(streams);
    object["video_index"] = index_json(movie.video_index, movie.nb_video);
    object["audio_index"] = index_json(movie.audio_index, movie.nb_audio);
    object["subtitle_index"] = index_json(movie.subtitle_index, movie.nb_subtitle);
    return object;
}

// The table for people. A row holds the number, the kind, what it is, start, duration and notes.
using Row = std::array<std::string, 6>;

// Ticks as seconds, to the millisecond; "?" when unknown.
std::string ticks_text(std::int64_t ticks, const ff::Rational& time_base) {
    if (ticks == kUnknown || time_base.den == 0) {
        return "?";
    }
    char text[64];
    (void)std::snprintf(text, sizeof text, "%.3f s",
                        static_cast<double>(ticks) * static_cast<double>(time_base.num) /
                            static_cast<double>(time_base.den));
    return text;
}

std::string rate_text(const ff::Rational& rate) {
    if (rate.num <= 0 || rate.den <= 0) {
        return {};
    }
    char text[64];
    (void)std::snprintf(text, sizeof text, ", %.6g fps",
                        static_cast<double>(rate.num) / static_cast<double>(rate.den));
    return text;
}

std::string video_notes(const ff::StreamCtx& stream) {
    std::string notes;
    const auto add = [&notes](const std::string& note) {
        notes += (notes.empty() ? "" : ", ") + note;
    };
    if (stream.pix_fmt < 0) {
        add("cannot be decoded");
    }
    if (stream.rotation != 0) {
        char text[64];
        (void)std::snprintf(text, sizeof text, "to be turned by %g degrees", stream.rotation);
        add(text);
    }
    const ff::Rational& aspect = stream.sample_aspect_ratio;
    if (aspect.num > 0 && aspect.num != aspect.den) {
        add("pixels " + std::to_string(aspect.num) + ":" + std::to_string(aspect.den));
    }
    if (stream.single_frame) {
        add("one picture");
    }
    if (stream.hw_pix_fmt >= 0) {
        add("decodes to another format than the file announces");
    }
    return notes;
}

std::string name_or_unknown(const char* name) {
    return name == nullptr ? "unknown format" : name;
}

std::string video_text(const ff::StreamCtx& stream) {
    std::string text = std::to_string(stream.width) + "x" + std::to_string(stream.height);
    if (stream.pix_fmt >= 0) {
        text += " " + name_or_unknown(pixel_format_name(stream.pix_fmt));
    }
    return stream.single_frame ? text : text + rate_text(stream.frame_rate);
}

Row stream_row(const ff::StreamCtx& stream) {
    Row row{std::to_string(stream.index),
            kind_name(stream.type),
            "",
            ticks_text(stream.start_time, stream.time_base),
            ticks_text(stream.duration, stream.time_base),
            ""};
    if (stream.type == ff::StreamType::Video) {
        row[2] = video_text(stream);
        row[5] = video_notes(stream);
    } else if (stream.type == ff::StreamType::Audio) {
        row[2] = std::to_string(stream.sample_rate) + " Hz, " + std::to_string(stream.channels) +
                 (stream.channels == 1 ? " channel, " : " channels, ") +
                 name_or_unknown(sample_format_name(stream.sample_fmt));
    } else {
        const std::size_t count = stream.subtitles.size();
        row[2] = std::to_string(count) + (count == 1 ? " text" : " texts");
    }
    return row;
}

// The streams by their number in the file, with those that are counted but have no record.
std::vector<Row> table_of(const ff::MovieCtx& movie) {
    std::map<int, Row> rows;
    for (int i = 0; i < movie.nb_streams; ++i) {
        rows[movie.streams[i]->index] = stream_row(*movie.streams[i]);
    }
    for (int i = 0; i < movie.nb_subtitle; ++i) {
        const int number = movie.subtitle_index[i];
        rows.insert({number, {std::to_string(number), "subtitle", "not SubRip, texts not read"}});
    }
    std::vector<Row> table{{"#", "kind", "what", "start", "duration", ""}};
    for (const auto& [number, row] : rows) {
        table.push_back(row);
    }
    return table;
}

void print_table(const std::vector<Row>& rows) {
    std::array<std::size_t, 6> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - row[i].size(), ' ');
            const bool is_number = i == 0 || i == 3 || i == 4;  // numbers stand to the right
            line += "  " + (is_number ? padding + row[i] : row[i] + padding);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        print_line(line);
    }
}

void print_movie(const std::string& path, const ff::MovieCtx& movie) {
    std::string head = printable(path) + ": ";
    head += movie.duration == kUnknown ? "unknown duration" : seconds_text(movie.duration, 3);
    if (movie.start_time != kUnknown && movie.start_time != 0) {
        head += ", starts at " + seconds_text(movie.start_time, 3);
    }
    if (movie.bit_rate > 0) {
        const bool is_low = movie.bit_rate < 1000;
        head += ", " + std::to_string(is_low ? movie.bit_rate : movie.bit_rate / 1000) +
                (is_low ? " bit/s" : " kbit/s");
    }
    print_line(head);
    if (movie.nb_streams == 0 && movie.nb_subtitle == 0) {
        print_line("  no stream that can be decoded");
        return;
    }
    print_table(table_of(movie));
}

}  // namespace

Exit run_probe(const ProbeOptions& options) {
    choose_device(options.hw, options.quiet);
    Exit status = Exit::Done;
    for (const std::string& path : options.files) {
        const ProbedFile file = probe_file(path);
        if (file.movie == nullptr) {
            print_error(path + ": " + file.error);
            if (options.json) {
                Json object;
                object["path"] = path;
                object["error"] = file.error;
                print_json(object);
            }
            status = Exit::Failed;
        } else if (options.json) {
            print_json(movie_json(path, *file.movie));
        } else {
            print_movie(path, *file.movie);
        }
    }
    return status;
}

}  // namespace tool
