#include "media_file.h"

#include "report.h"
#include "tool_log.h"

#include <framewell/movie_info.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

namespace tool {

namespace {

// "http://...", "file:...": FFmpeg takes the part before the colon as the name of a protocol.
bool has_protocol(const std::string& path) {
    const std::size_t colon = path.find(':');
    return colon != std::string::npos && colon > 0 && path.find('/') > colon;
}

// What the system says against reading this path; empty if nothing.
std::string system_objection(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        return "cannot be read (" + error.message() + "); check the path";
    }
    if (std::filesystem::is_directory(status)) {
        return "is a directory; name the files in it";
    }
    if (!std::filesystem::is_regular_file(status)) {
        return "is no regular file, and only those can be read at any place; save it as one first";
    }
    errno = 0;
    if (!std::ifstream(path)) {
        return "cannot be read (" + system_error_text(errno) + "); check its permissions";
    }
    if (std::filesystem::file_size(path, error) == 0 && !error) {
        return "is empty; check that it was written completely";
    }
    return {};
}

// Why a path that could not be probed is no media file: what the system says of it first, since
// that is what a user can mend, then what FFmpeg says of its content.
std::string why_not_readable(const std::string& path) {
    const Complaints complaints = take_complaints();
    if (!has_protocol(path)) {
        std::string objection = system_objection(path);
        if (!objection.empty()) {
            return objection;
        }
    }
    const std::string reason = complaints.ffmpeg.empty() ? "" : " (" + complaints.ffmpeg + ")";
    return "FFmpeg cannot open it as a media file" + reason +
           "; check that it is one and complete, or see more with -v";
}

// "video streams: 0, 3", to end an error line with.
std::string list_streams(const ff::MovieCtx& movie, ff::StreamType kind) {
    std::string numbers;
    for (int i = 0; i < movie.nb_streams; ++i) {
        if (movie.streams[i]->type == kind) {
            numbers += (numbers.empty() ? "" : ", ") + std::to_string(movie.streams[i]->index);
        }
    }
    const std::string name = kind_name(kind);
    return numbers.empty() ? "it has no " + name + " stream" : name + " streams: " + numbers;
}

}  // namespace

ProbedFile probe_file(const std::string& path) {
    (void)take_complaints();  // those of earlier files say nothing about this one
    ProbedFile result;
    result.movie = ff::getMovieInfo(path.c_str(), nullptr);
    if (result.movie == nullptr) {
        result.error = why_not_readable(path);
    }
    return result;
}

const char* kind_name(ff::StreamType type) {
    switch (type) {
        case ff::StreamType::Video:
            return "video";
        case ff::StreamType::Audio:
            return "audio";
        case ff::StreamType::Subtitle:
            return "subtitle";
        case ff::StreamType::None:
            break;
    }
    return "none";
}

const ff::MovieCtx& need_file(const std::string& path) {
    const ProbedFile file = probe_file(path);
    if (file.movie == nullptr) {
        throw Failure(path + ": " + file.error);
    }
    return *file.movie;
}

const ff::StreamCtx& pick_stream(const ff::MovieCtx& movie, ff::StreamType kind,
                                 std::optional<int> number) {
    const std::string path = movie.path;
    const std::string name = kind_name(kind);
    if (!number.has_value()) {
        const ff::StreamCtx* const first = ff::first_stream(&movie, kind);
        if (first == nullptr) {
            throw Failure(path + ": it has no " + name +
                          " stream that can be decoded; see `framewell probe`");
        }
        return *first;
    }
    const ff::StreamCtx* const stream = ff::stream_by_index(&movie, *number);
    if (stream == nullptr) {
        throw Failure(path + ": it has no stream " + std::to_string(*number) +
                      " that can be decoded; " + list_streams(movie, kind));
    }
    if (stream->type != kind) {
        throw Failure(path + ": stream " + std::to_string(*number) + " is " +
                      kind_name(stream->type) + ", not " + name + "; " + list_streams(movie, kind));
    }
    return *stream;
}

std::string stream_name(const ff::StreamCtx& stream) {
    return std::string(stream.movie->path) + ": stream " + std::to_string(stream.index);
}

std::int64_t movie_start_us(const ff::MovieCtx& movie) {
    constexpr std::int64_t unknown = std::numeric_limits<std::int64_t>::min();
    return movie.start_time == unknown ? 0 : movie.start_time;
}

void open_stream(const ff::StreamCtx& stream, ff::FFDecoder& decoder) {
    (void)take_complaints();  // those of earlier streams say nothing about this one
    if (!decoder.open(&stream)) {
        throw Failure(stream_name(stream) + " cannot be decoded" + Reason().text() +
                      "; see `framewell probe`");
    }
}

}  // namespace tool
