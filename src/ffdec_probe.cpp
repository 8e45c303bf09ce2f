#include "ffdec_probe.h"

#include "base/log.h"
#include "cancel_flag.h"
#include "ffdec_instance.h"
#include "ffmpeg_guard.h"
#include "media/input_file.h"

#include <framewell/media/ffmpeg_error.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdec_probe";

constexpr AVRational kMicroseconds{1, 1000000};

// One picture without sound is shown this long.
constexpr std::int64_t kStillDuration = 40000;

// What the decoder is given when only the first two pictures are wanted: mostly enough.
constexpr int kTrialPackets = 2;

// Consecutive errors after which a stream counts as ended.
constexpr int kMaxErrors = 4;

/// The records by path. Never destroyed: hosts use records in their own static objects.
struct MovieCache {
    std::mutex mutex;
    std::unordered_map<std::string, MovieCtx*> movies;  // guarded by mutex
    std::vector<MovieCtx*> replaced;  // guarded by mutex; somebody may still use these
};

MovieCache& movie_cache() {
    static auto* const cache = new MovieCache;
    return *cache;
}

MovieCtx* find_in_cache(const char* path) {
    MovieCache& cache = movie_cache();
    const std::lock_guard<std::mutex> lock(cache.mutex);
    const auto found = cache.movies.find(path);
    return found != cache.movies.end() ? found->second : nullptr;
}

void store_in_cache(MovieCtx* movie) {
    MovieCache& cache = movie_cache();
    const std::lock_guard<std::mutex> lock(cache.mutex);
    MovieCtx*& slot = cache.movies[movie->path];
    if (slot != nullptr) {
        cache.replaced.push_back(slot);
    }
    slot = movie;
}

bool is_known(std::int64_t time) {
    return time != AV_NOPTS_VALUE;
}

/// Decodes trial frames of one stream with a demuxer and decoder of its own.
class TrialDecoder {
public:
    TrialDecoder(const MovieCtx& movie, const AVStream& stream)
        : m_path(movie.path),
          m_stream_index(stream.index),
          m_packet(av_packet_alloc()),
          m_frame(av_frame_alloc()) {
        restart();
    }

    /// Begins at the start again.
    void restart() {
        (void)m_instance.open(m_path, m_stream_index);  // if not, every decode() fails
        m_instance.decode_roughly(0);
        m_count = 0;
        m_last_time = AV_NOPTS_VALUE;
    }

    /// Decodes one frame. Like a worker it reads on over a few damaged packets. AVERROR_EXIT once
    /// `cancel` (may be null) is set.
    int decode(const std::atomic<bool>* cancel = nullptr) {
        if (!m_packet || !m_frame) {
            return AVERROR(ENOMEM);
        }
        int result = m_instance.get_frame(m_packet.get(), m_frame.get(), cancel);
        for (int errors = 1;
             result < 0 && result != AVERROR_EOF && result != AVERROR_EXIT && errors <= kMaxErrors;
             ++errors) {
            result = m_instance.get_frame(m_packet.get(), m_frame.get(), cancel);
        }
        if (result >= 0) {
            ++m_count;
            m_last_time = m_frame->best_effort_timestamp;
        }
        return result;
    }

    void decode_to_end(const std::atomic<bool>* cancel) {
        while (!is_set(cancel) && decode(cancel) >= 0) {
        }
    }

    Instance& instance() { return m_instance; }

    AVPacket* packet() { return m_packet.get(); }

    AVFrame* frame() { return m_frame.get(); }

    /// The number of frames decoded so far.
    std::int64_t count() const { return m_count; }

    /// The time of the last frame decoded, ticks.
    std::int64_t last_time() const { return m_last_time; }

private:
    const char* m_path;
    int m_stream_index;
    Instance m_instance;
    PacketPtr m_packet;
    FramePtr m_frame;
    std::int64_t m_count = 0;
    std::int64_t m_last_time = AV_NOPTS_VALUE;
};

StreamCtx* make_record(MovieCtx* movie, const AVStream& stream, StreamType type) {
    auto* const record = new StreamCtx;
    record->index = stream.index;
    record->type = type;
    record->time_base = rational_convert(stream.time_base);
    record->duration = stream.duration;
    record->start_time = stream.start_time;
    record->movie = movie;
    return record;
}

/// Hands the record over to the movie. A movie that is full keeps what it has.
StreamCtx* append_record(MovieCtx* movie, std::unique_ptr<StreamCtx> record) {
    if (movie->nb_streams >= MovieCtx::kMaxStreams) {
        return nullptr;
    }
    movie->streams[movie->nb_streams] = record.release();
    return movie->streams[movie->nb_streams++];
}

void append_index(std::uint8_t (&indexes)[MovieCtx::kMaxPerKind], int* used, int stream_index) {
    if (*used < MovieCtx::kMaxPerKind && stream_index <= UINT8_MAX) {
        indexes[(*used)++] = static_cast<std::uint8_t>(stream_index);
    }
}

/// The duration that the container's own stands for, in ticks; AV_NOPTS_VALUE if it has none that
/// can be trusted.
std::int64_t trusted_duration(const AVStream& stream, std::int64_t movie_duration,
                              bool unreliable) {
    if (unreliable) {
        return AV_NOPTS_VALUE;
    }
    if (is_known(stream.duration)) {
        return stream.duration;
    }
    return is_known(movie_duration) ? av_rescale_q(movie_duration, kMicroseconds, stream.time_base)
                                    : AV_NOPTS_VALUE;
}

/// The duration by decoding to the end: the start of the last frame, not its end.
std::int64_t measured_video_duration(TrialDecoder* trial, const StreamCtx& record,
                                     const AVStream& stream, const std::atomic<bool>* cancel) {
    trial->decode_to_end(cancel);
    if (is_known(trial->last_time())) {
        return trial->last_time();
    }
    if (record.frame_rate.num <= 0 || record.frame_rate.den <= 0) {
        return record.duration;
    }
    const AVRational frame_length = av_inv_q(rational_convert(record.frame_rate));
    return av_rescale_q(trial->count() - 1, frame_length, stream.time_base);
}

/// What the first two pictures of a stream tell.
struct FirstPictures {
    int first = AVERROR_EOF;  // results of decoding them
    int second = AVERROR_EOF;
    Rational sample_aspect_ratio{0, 1};
    Rational frame_rate{0, 0};
    int format = -1;
};

FirstPictures decode_first_pictures(TrialDecoder* trial) {
    FirstPictures pictures;
    pictures.first = trial->decode();
    if (pictures.first < 0) {
        return pictures;
    }
    AVFormatContext* const format = trial->instance().format_contex();
    AVStream* const stream = trial->instance().avstream();
    pictures.sample_aspect_ratio =
        rational_convert(av_guess_sample_aspect_ratio(format, stream, trial->frame()));
    pictures.frame_rate = rational_convert(av_guess_frame_rate(format, stream, trial->frame()));
    pictures.format = trial->frame()->format;
    pictures.second = trial->decode();
    return pictures;
}

/// Decodes two pictures with the least work: a decoder that is told that the stream ends after two
/// packets hands out what it has, instead of reading on until it knows the order of all pictures.
/// Where two packets are not two pictures (fields, damage), the whole stream is there to decode.
FirstPictures look_at_first_pictures(TrialDecoder* trial) {
    trial->instance().decode_roughly(kTrialPackets);
    FirstPictures pictures = decode_first_pictures(trial);
    if (pictures.second < 0 && trial->instance().is_cut_short()) {
        trial->restart();
        pictures = decode_first_pictures(trial);
    }
    return pictures;
}

void measure_video(TrialDecoder* trial, StreamCtx* record, AVStream* stream, std::int64_t trusted,
                   const std::atomic<bool>* cancel) {
    const FirstPictures pictures =
        is_known(trusted) ? look_at_first_pictures(trial) : decode_first_pictures(trial);
    if (pictures.first < 0) {
        return;  // the record keeps its "could not be decoded" values
    }
    record->sample_aspect_ratio = pictures.sample_aspect_ratio;
    record->frame_rate = pictures.frame_rate;
    record->codec_pix_fmt = stream->codecpar->format;
    if (pictures.format != record->codec_pix_fmt) {
        FW_LOG(2, "bg", "[hw enabled] pix_fmt convert: %d --> %d", record->codec_pix_fmt,
               pictures.format);
        record->hw_pix_fmt = pictures.format;
    }
    if (pictures.second < 0) {
        record->single_frame = pictures.second == AVERROR_EOF;
        return;
    }
    record->duration =
        is_known(trusted) ? trusted : measured_video_duration(trial, *record, *stream, cancel);
}

/// Probes one stream of any kind and lists its number. True if it is a still picture.
bool probe_stream(MovieCtx* movie, AVStream* stream, bool unreliable, std::atomic<bool>* cancel) {
    switch (stream->codecpar->codec_type) {
        case AVMEDIA_TYPE_SUBTITLE:
            (void)probe_subtitle_stream(movie, stream);  // listed whether or not it has a record
            append_index(movie->subtitle_index, &movie->nb_subtitle, stream->index);
            return false;
        case AVMEDIA_TYPE_AUDIO:
            (void)probe_audio_stream(movie, stream, movie->duration, unreliable, cancel);
            append_index(movie->audio_index, &movie->nb_audio, stream->index);
            return false;
        case AVMEDIA_TYPE_VIDEO: {
            const StreamCtx* const record =
                probe_video_stream(movie, stream, movie->duration, unreliable, cancel);
            append_index(movie->video_index, &movie->nb_video, stream->index);
            return record != nullptr && record->single_frame;
        }
        default:
            return false;
    }
}

/// The record whose duration stands for a movie's that is not known.
const StreamCtx* record_for_duration(const MovieCtx& movie, bool last_video_is_still) {
    if (movie.nb_video > 0 && !last_video_is_still) {
        return first_stream(&movie, StreamType::Video);
    }
    return movie.nb_streams > 0 ? movie.streams[0] : nullptr;
}

void correct_duration(MovieCtx* movie, bool unreliable, bool last_video_is_still) {
    if (is_known(movie->duration) && !unreliable) {
        return;
    }
    if (last_video_is_still && movie->nb_audio == 0) {
        movie->duration = kStillDuration;
        return;
    }
    if (unreliable) {
        FW_LOG(3, "bg", "unreliable duration detected ...");
    }
    const StreamCtx* const record = record_for_duration(*movie, last_video_is_still);
    if (record == nullptr) {
        return;
    }
    movie->duration =
        is_known(record->duration)
            ? av_rescale_q(record->duration, rational_convert(record->time_base), kMicroseconds)
            : AV_NOPTS_VALUE;
    // Deliberate: hosts look for this line among the errors.
    FW_LOG(2, "bg", "** correct movie duration: %lld(sec)",
           static_cast<long long>(movie->duration / 1000000));
}

MovieCtx* make_movie(const char* path, AVFormatContext* format, std::atomic<bool>* cancel) {
    auto* const movie = new MovieCtx;
    movie->path = strdup(path);
    (void)avformat_find_stream_info(format, nullptr);  // what was found before an error counts
    movie->start_time = format->start_time;
    movie->duration = format->duration;
    movie->bit_rate = format->bit_rate;
    const bool unreliable = format->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;

    bool last_video_is_still = false;
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        AVStream* const stream = format->streams[i];
        if (avcodec_find_decoder(stream->codecpar->codec_id) == nullptr) {
            continue;
        }
        const bool is_still = probe_stream(movie, stream, unreliable, cancel);
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            last_video_is_still = is_still;
        }
    }
    correct_duration(movie, unreliable, last_video_is_still);
    return movie;
}

}  // namespace

MovieCtx* getMovieInfo(const char* path, std::atomic<bool>* cancel) {
    if (!is_ffmpeg_usable()) {
        return nullptr;
    }
    static std::once_flag inited;
    std::call_once(inited, compat::register_all);
    if (path == nullptr) {
        FW_LOG(2, "bg", "can't open input file: %s", "");
        return nullptr;
    }
    if (MovieCtx* const known = find_in_cache(path)) {
        FW_LOG(5, "bg", "mvCtx from cache: %s", path);
        return known;
    }
    AVFormatContext* opened = nullptr;
    if (open_input_file(&opened, path) < 0) {
        FW_LOG(2, "bg", "can't open input file: %s", path);
        return nullptr;
    }
    const FormatContextPtr format(opened);
    MovieCtx* const movie = make_movie(path, format.get(), cancel);
    store_in_cache(movie);
    return movie;
}

StreamCtx* probe_video_stream(MovieCtx* movie, AVStream* stream, long long movie_duration,
                              bool unreliable, std::atomic<bool>* cancel) {
    std::unique_ptr<StreamCtx> record(make_record(movie, *stream, StreamType::Video));
    record->width = stream->codecpar->width;
    record->height = stream->codecpar->height;
    record->rotation = get_rotation(stream);

    TrialDecoder trial(*movie, *stream);
    measure_video(&trial, record.get(), stream,
                  trusted_duration(*stream, movie_duration, unreliable), cancel);
    record->pix_fmt = record->hw_pix_fmt != -1 ? record->hw_pix_fmt : record->codec_pix_fmt;
    return append_record(movie, std::move(record));
}

StreamCtx* probe_audio_stream(MovieCtx* movie, AVStream* stream, long long movie_duration,
                              bool unreliable, std::atomic<bool>* cancel) {
    const AVCodecParameters& parameters = *stream->codecpar;
    std::unique_ptr<StreamCtx> record(make_record(movie, *stream, StreamType::Audio));
    record->channels = compat::channel_count(parameters);
    record->channel_layout = compat::channel_mask(parameters);
    if (record->channel_layout == 0) {
        record->channel_layout = compat::default_channel_mask(record->channels);
    }
    record->sample_rate = parameters.sample_rate;
    record->sample_fmt = parameters.format;
    record->duration = trusted_duration(*stream, movie_duration, unreliable);
    if (!is_known(record->duration)) {
        TrialDecoder trial(*movie, *stream);
        trial.decode_to_end(cancel);
        record->duration = trial.last_time();
    }
    return append_record(movie, std::move(record));
}

StreamCtx* probe_subtitle_stream(MovieCtx* movie, AVStream* stream) {
    if (stream->codecpar->codec_id != AV_CODEC_ID_SUBRIP) {
        return nullptr;
    }
    std::unique_ptr<StreamCtx> record(make_record(movie, *stream, StreamType::Subtitle));
    TrialDecoder trial(*movie, *stream);
    AVPacket* const packet = trial.packet();
    while (packet != nullptr && trial.instance().get_packet(packet) >= 0) {
        Subtitle event;
        event.start = av_rescale_q(packet->pts, stream->time_base, kMicroseconds);
        event.end = event.start;  // Deliberate: the end of an event is not known yet
        event.text.assign(reinterpret_cast<const char*>(packet->data),
                          static_cast<std::size_t>(packet->size));
        record->subtitles.push_back(std::move(event));
    }
    return append_record(movie, std::move(record));
}

double get_rotation(AVStream* stream) {
    double rotation = 0;
    const AVDictionaryEntry* const tag = av_dict_get(stream->metadata, "rotate", nullptr, 0);
    if (tag != nullptr && tag->value[0] != '\0' && std::strcmp(tag->value, "0") != 0) {
        char* end = nullptr;
        rotation = av_strtod(tag->value, &end);
        if (*end != '\0') {
            rotation = 0;
        }
    }
    const std::int32_t* const matrix = compat::display_matrix(*stream);
    if (rotation == 0 && matrix != nullptr) {
        rotation = -av_display_rotation_get(matrix);
    }
    if (!std::isfinite(rotation)) {
        return 0;  // a tag such as "inf", or a matrix that turns everything into a point
    }
    return rotation - 360 * std::floor(rotation / 360 + 0.0025);
}

}  // namespace ff
