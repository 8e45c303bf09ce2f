#include "ffdec_task.h"

#include "base/log.h"
#include "cancel_flag.h"
#include "media/frame_shelf.h"

#include <framewell/base/data.h>
#include <framewell/media/ffmpeg_error.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdec_task";

constexpr int kMaxSeekRetries = 5;
constexpr int kMaxErrorRetries = 4;

// Steps back of one second each. From then on each goes twice as far as the one before: where a
// damaged file tells of hours in which nothing decodes, its start is reached in a few dozen steps
// and not in thousands. Starting earlier than needed costs time only: the same frame is found.
constexpr int kStepsOfOneSecond = 16;

// What the log shows for the frame of a step that the end of the stream caused.
constexpr std::int64_t kNoFrame = -111111;

std::int64_t add_saturated(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) {
        return sum;
    }
    return b > 0 ? std::numeric_limits<std::int64_t>::max()
                 : std::numeric_limits<std::int64_t>::min();
}

/// One second in ticks. At least 1, or stepping back second by second would not move in a stream
/// whose tick is longer than that.
std::int64_t one_second_in_ticks(const Rational& time_base) {
    if (time_base.num <= 0 || time_base.den <= 0) {
        return 1;
    }
    const double ticks = static_cast<double>(static_cast<std::int32_t>(time_base.den)) /
                         static_cast<double>(static_cast<std::int32_t>(time_base.num));
    return std::max<std::int64_t>(1, static_cast<std::int64_t>(ticks));
}

int cache_limit(const char* key, int fallback) {
    const long long limit = mox::Data::instance()->integer(key, fallback);
    return static_cast<int>(
        std::clamp<long long>(limit, 0, std::numeric_limits<std::int32_t>::max()));
}

std::int64_t time_of(const std::shared_ptr<AVFrame>& frame) {
    return frame->best_effort_timestamp;
}

/// True for a result that is no error of the decoder: it was told to stop.
bool is_cancelled(int result, const std::atomic<bool>* cancel) {
    return result == AVERROR_EXIT && is_set(cancel);
}

/// True if the file's stream is what the record says: the file may have been replaced since it was
/// probed, and samples taken for pixels are no picture.
bool is_of_kind(const AVStream& opened, StreamType probed) {
    const AVMediaType kind = opened.codecpar->codec_type;
    return (probed == StreamType::Video) == (kind == AVMEDIA_TYPE_VIDEO) &&
           (probed == StreamType::Audio) == (kind == AVMEDIA_TYPE_AUDIO);
}

}  // namespace

/// One search for the frame at `ts`.
struct FFDec_Task::DecodeRun {
    long long ts;
    std::int64_t target;  // where the last seek went
    std::atomic<bool>* cancel;
    Ts_ROUND mode;
    bool seeking;  // the first frame after a seek is still to come
    int seek_tries = 0;
    int error_tries = 0;
    int steps = 0;
    std::int64_t step_length = 0;
    std::shared_ptr<AVFrame> result = nullptr;

    void reset_tries() { seek_tries = error_tries = 0; }

    std::int64_t next_step(std::int64_t one_second) {
        step_length =
            ++steps <= kStepsOfOneSecond ? one_second : add_saturated(step_length, step_length);
        return step_length;
    }
};

FFDec_Task::~FFDec_Task() {
    close();
}

bool FFDec_Task::open(const StreamCtx* stream) {
    if (stream == nullptr) {
        return false;
    }
    if (m_instance) {
        return true;
    }
    m_stream = stream;
    m_one_second = one_second_in_ticks(stream->time_base);
    auto instance = std::make_unique<Instance>();
    if (stream->movie == nullptr || !instance->open(stream->movie->path, stream->index)) {
        return false;
    }
    if (!is_of_kind(*instance->avstream(), stream->type)) {
        FW_LOG(2, "bg", "stream %d is of another kind by now: %s", stream->index,
               stream->movie->path);
        return false;
    }
    m_instance = std::move(instance);
    m_packet.reset(av_packet_alloc());

    const bool is_video = stream->type == StreamType::Video;
    m_max_frames = is_video ? cache_limit("dec.max_vf", 8) : cache_limit("dec.max_af", 500);
    m_ahead_seconds = is_video ? 2 : 8;
    (void)std::snprintf(m_name, sizeof m_name, is_video ? "video-%d" : "audio-%d", m_id);
    return true;
}

bool FFDec_Task::is_opened() const {
    return m_stream != nullptr && m_instance && m_instance->is_open();
}

void FFDec_Task::close() {
    m_instance.reset();
    m_frames.clear();
    m_at_head = false;
    m_at_eof = false;
}

// The cache

bool FFDec_Task::is_empty() const {
    return m_frames.empty();
}

long long FFDec_Task::cached_first_ts() const {
    return m_frames.empty() ? -1 : time_of(m_frames.front());
}

void FFDec_Task::clear_cache_frames() {
    if (!m_frames.empty()) {
        m_frames.clear();
        m_at_head = false;
        m_at_eof = false;
    }
}

bool FFDec_Task::is_contain(long long ts, bool mode) {
    return pri_is_contain(ts, mode ? Ts_NEXT : Ts_FLOOR);
}

bool FFDec_Task::pri_is_contain(long long ts, Ts_ROUND mode) const {
    if (m_frames.empty()) {
        return false;
    }
    if (time_of(m_frames.front()) > ts) {
        return m_at_head;
    }
    const std::int64_t newest = time_of(m_frames.back());
    if (newest >= ts) {
        return !(newest == ts && mode == Ts_NEXT);
    }
    return m_at_eof;
}

bool FFDec_Task::will_contain(long long ts) {
    if (m_frames.empty() || time_of(m_frames.front()) > ts) {
        return false;
    }
    return is_within_reach(m_cur_ts, ts);
}

bool FFDec_Task::is_within_reach(std::int64_t from, long long ts) const {
    const std::int64_t ahead =
        m_one_second > std::numeric_limits<std::int64_t>::max() / m_ahead_seconds
            ? std::numeric_limits<std::int64_t>::max()
            : m_one_second * m_ahead_seconds;
    return add_saturated(from, ahead) >= ts;
}

std::shared_ptr<AVFrame> FFDec_Task::get_exist_resource(long long ts, bool mode) {
    return get_frame_from_cache(ts, mode ? Ts_NEXT : Ts_FLOOR);
}

std::shared_ptr<AVFrame> FFDec_Task::get_frame_from_cache(long long ts, Ts_ROUND mode) const {
    if (m_frames.empty()) {
        return nullptr;
    }
    if (time_of(m_frames.front()) > ts) {
        return m_at_head ? m_frames.front() : nullptr;
    }
    const std::int64_t newest = time_of(m_frames.back());
    if (newest < ts) {
        return m_at_eof ? m_frames.back() : nullptr;
    }
    if (mode == Ts_FLOOR) {
        const auto covers = [ts](const auto& frame) { return time_of(frame) <= ts; };
        return *std::find_if(m_frames.rbegin(), m_frames.rend(), covers);  // the oldest one does
    }
    if (newest == ts) {
        return nullptr;  // at once: playing asks this for every frame, and hundreds are kept
    }
    const auto follows = [ts](const auto& frame) { return time_of(frame) > ts; };
    return *std::find_if(m_frames.begin(), m_frames.end(), follows);  // the newest one does
}

void FFDec_Task::insert_into_cache(std::shared_ptr<AVFrame> frame) {
    m_newest_seen = std::max(m_newest_seen, time_of(frame));
    m_frames.push_back(std::move(frame));
}

/// Makes room as the limit asks. The limit is exceeded by one frame when the new one has been
/// added: the frame that covers a time is known only once the one after it has been decoded.
void FFDec_Task::evict_oldest_if_full() {
    if (!m_frames.empty() && m_frames.size() > static_cast<std::size_t>(m_max_frames)) {
        m_frames.pop_front();
        m_at_head = false;
    }
}

// Jobs

std::shared_ptr<AVFrame> FFDec_Task::do_job(long long ts, bool locked, std::atomic<bool>* cancel,
                                            bool mode) {
    return get_frame(ts, locked, cancel, mode ? Ts_NEXT : Ts_FLOOR);
}

std::shared_ptr<AVFrame> FFDec_Task::get_frame(long long ts, bool locked, std::atomic<bool>* cancel,
                                               Ts_ROUND mode) {
    const JobGuard guard(*this, locked);
    m_cur_ts = ts;
    std::shared_ptr<AVFrame> result = pri_get_frame(ts, cancel, mode);
    if (result && result->pts != AV_NOPTS_VALUE) {
        m_cur_ts = result->pts;
    }
    return result;
}

std::shared_ptr<AVFrame> FFDec_Task::pri_get_frame(long long ts, std::atomic<bool>* cancel,
                                                   Ts_ROUND mode) {
    if (!m_instance || m_broken) {
        report_broken();
        return nullptr;
    }
    DecodeRun run{ts, std::max<std::int64_t>(ts, 0), cancel, mode, false};
    if (m_stream->type == StreamType::Video && m_stream->single_frame) {
        return m_frames.empty() ? decode_until(&run) : m_frames.front();
    }
    std::shared_ptr<AVFrame> answer;
    switch (decide(ts, mode, &answer)) {
        case Decision::Answer:
            return answer;
        case Decision::DecodeForward:
            break;
        case Decision::Seek:
            clear_cache_frames();
            // An earlier search may have been given up between its seek and its first frame.
            m_at_head = ts <= 0;
            m_at_eof = false;
            if (!m_instance->seek(run.target, true) && ts <= 0) {
                m_at_head = false;  // wherever the file stands, it is not at its start
                return nullptr;
            }
            run.seeking = ts > 0;  // there a failure shows in what is decoded next
            break;
    }
    return decode_until(&run);
}

FFDec_Task::Decision FFDec_Task::decide(long long ts, Ts_ROUND mode,
                                        std::shared_ptr<AVFrame>* answer) const {
    if (m_frames.empty()) {
        return Decision::Seek;
    }
    if (!m_at_head && m_frames.front()->pts > ts) {
        return Decision::Seek;
    }
    if (!m_at_eof && !is_within_reach(m_frames.back()->pts, ts)) {
        return Decision::Seek;
    }
    *answer = get_frame_from_cache(ts, mode);
    return *answer ? Decision::Answer : Decision::DecodeForward;
}

/// Decodes until the run has its frame, is cancelled, or nothing more can come.
std::shared_ptr<AVFrame> FFDec_Task::decode_until(DecodeRun* run) {
    std::shared_ptr<AVFrame> frame;
    while (m_packet && !is_set(run->cancel)) {
        if (!frame) {
            frame = take_avframe_ptr();
            if (!frame) {
                break;
            }
        }
        const int decoded = m_instance->get_frame(m_packet.get(), frame.get(), run->cancel);
        if (!goes_on_after(run, decoded, &frame)) {
            break;
        }
    }
    return std::move(run->result);
}

/// What follows from one decode call: whether there is to be another. Takes a frame that is kept.
bool FFDec_Task::goes_on_after(DecodeRun* run, int decoded, std::shared_ptr<AVFrame>* frame) {
    if (decoded == AVERROR_EOF) {
        if (run->seeking) {
            return step_back(run, AV_NOPTS_VALUE, true);
        }
        answer_at_end(run);
        return false;
    }
    if (decoded < 0) {
        return !is_cancelled(decoded, run->cancel) && retry_after_error(run, decoded);
    }
    if (run->seeking && lies_past(*run, **frame)) {
        return step_back(run, (*frame)->best_effort_timestamp, false);
    }
    run->seeking = false;
    return !accept_frame(run, std::exchange(*frame, nullptr));
}

/// True for a first frame after a seek that shows that the seek went too far.
bool FFDec_Task::lies_past(const DecodeRun& run, const AVFrame& frame) {
    return frame.best_effort_timestamp > run.ts || frame.best_effort_timestamp == AV_NOPTS_VALUE;
}

/// True if decoding should be tried again.
bool FFDec_Task::retry_after_error(DecodeRun* run, int error) {
    FW_LOG(2, "bg", "failed to dec frame: %s", ffmpeg_error(error));
    if (run->seeking && run->seek_tries < kMaxSeekRetries) {
        ++run->seek_tries;
        FW_LOG(5, "bg", "seek pre without flush, try=%d", run->seek_tries);
        (void)m_instance->seek(run->target, false);
        return true;
    }
    return may_try_again(&run->error_tries);
}

bool FFDec_Task::may_try_again(int* tries) {
    if (*tries >= kMaxErrorRetries) {
        return false;
    }
    ++*tries;
    FW_LOG(5, "bg", "ret<0, try again (try_count=%d)", *tries);
    return true;
}

/// Takes a frame into the cache. True if it settles the run.
bool FFDec_Task::accept_frame(DecodeRun* run, const std::shared_ptr<AVFrame>& frame) {
    run->reset_tries();
    repair_time(frame.get());
    evict_oldest_if_full();
    const std::shared_ptr<AVFrame> previous = m_frames.empty() ? nullptr : m_frames.back();
    insert_into_cache(frame);

    const std::int64_t time = time_of(frame);
    if (time < run->ts || (time == run->ts && run->mode == Ts_NEXT)) {
        return false;
    }
    const bool covers = time == run->ts || run->mode == Ts_NEXT || !previous;
    run->result = covers ? frame : previous;
    return true;
}

/// Every frame in the cache has a time, in both of its fields.
void FFDec_Task::repair_time(AVFrame* frame) const {
    if (frame->pts == AV_NOPTS_VALUE) {
        frame->pts = frame->best_effort_timestamp;
    }
    if (frame->pts == AV_NOPTS_VALUE) {
        frame->pts = m_frames.empty() ? 0
                                      : add_saturated(time_of(m_frames.back()),
                                                      compat::frame_duration(*m_frames.back()));
    }
    if (frame->best_effort_timestamp == AV_NOPTS_VALUE) {
        frame->best_effort_timestamp = frame->pts;
    }
}

/// The newest frame lasts for ever. A stream that ends before its first frame is given up for good.
void FFDec_Task::answer_at_end(DecodeRun* run) {
    m_at_eof = true;
    if (!m_frames.empty()) {
        run->result = m_frames.back();
        return;
    }
    FW_LOG(2, "bg", "bad movie: unexpected eof");
    m_broken = true;
}

/// Logs once per worker that its requests are answered empty from now on.
void FFDec_Task::report_broken() {
    if (m_broken && !m_broken_reported) {
        m_broken_reported = true;
        FW_LOG(3, "bg", "%s is broken: every request that it gets is answered empty", m_name);
    }
}

/// The seek landed behind the time: tries a second earlier, at last the start of the stream. A step
/// that ends where the one before it did is not decoded: in a damaged stream whose last key frame
/// lies far back every step would read all the rest of it once more. False if the stream cannot
/// even be brought to its start: the pictures to come are not the first.
bool FFDec_Task::step_back(DecodeRun* run, std::int64_t frame_time, bool at_end) {
    if (at_end) {
        // Beyond the end every step would only meet the end again.
        run->target = std::min(run->target, add_saturated(last_known_end(), m_one_second));
    }
    do {
        const bool sought = seek_earlier(run, at_end ? kNoFrame : frame_time);
        if (run->target <= std::max<std::int64_t>(0, m_stream->start_time)) {
            m_at_head = sought;
            run->seeking = false;
            return sought;
        }
    } while (!is_set(run->cancel) && m_instance->landed_where_it_did_before());
    return true;
}

/// `frame_time`: of the frame that lies behind the time, for the log.
bool FFDec_Task::seek_earlier(DecodeRun* run, std::int64_t frame_time) {
    run->reset_tries();
    const std::int64_t back = run->next_step(m_one_second);
    run->target = std::max<std::int64_t>(0, add_saturated(run->target, -back));
    const AVCodecContext* const codec = m_instance->codec_context();
    const char* const kind = codec == nullptr                          ? "-"
                             : codec->codec_type == AVMEDIA_TYPE_AUDIO ? "Audio"
                                                                       : "Video";
    FW_LOG(5, "bg", "[%s]---> seeking=(%lld), cur_frame=(%lld), backward (1sec=%lld)", kind,
           run->ts, static_cast<long long>(frame_time), static_cast<long long>(m_one_second));
    return m_instance->seek(run->target, true);
}

/// The latest time that the stream is known to have; 0 when nothing is known.
std::int64_t FFDec_Task::last_known_end() const {
    const bool has_duration = m_stream->duration != AV_NOPTS_VALUE && m_stream->duration > 0;
    const std::int64_t start = m_stream->start_time != AV_NOPTS_VALUE ? m_stream->start_time : 0;
    const std::int64_t told = has_duration ? add_saturated(start, m_stream->duration) : 0;
    return std::max(told, m_newest_seen);
}

std::shared_ptr<AVFrame> FFDec_Task::get_next_frame(std::atomic<bool>* cancel, bool allow_last) {
    if (!m_instance || m_broken) {
        report_broken();
        return nullptr;
    }
    std::shared_ptr<AVFrame> result;
    if (m_at_eof && !m_frames.empty() && m_cur_ts >= m_frames.back()->pts) {
        result = allow_last ? m_frames.back() : nullptr;
    } else {
        const auto next = std::find_if(m_frames.begin(), m_frames.end(),
                                       [this](const auto& frame) { return frame->pts > m_cur_ts; });
        result = next != m_frames.end() ? *next : decode_one_more(cancel, allow_last);
    }
    if (result) {
        m_cur_ts = result->pts;
    }
    return result;
}

std::shared_ptr<AVFrame> FFDec_Task::decode_one_more(std::atomic<bool>* cancel, bool allow_last) {
    std::shared_ptr<AVFrame> frame = take_avframe_ptr();
    int tries = 0;
    while (m_packet && frame && !is_set(cancel)) {
        const int decoded = m_instance->get_frame(m_packet.get(), frame.get(), cancel);
        if (decoded >= 0) {
            repair_time(frame.get());
            evict_oldest_if_full();
            insert_into_cache(frame);
            return frame;
        }
        if (decoded == AVERROR_EOF) {
            m_at_eof = m_at_eof || !m_frames.empty();
            return allow_last && !m_frames.empty() ? m_frames.back() : nullptr;
        }
        if (is_cancelled(decoded, cancel)) {
            break;
        }
        FW_LOG(2, "bg", "(2) failed to dec frame: %s", ffmpeg_error(decoded));
        if (!may_try_again(&tries)) {
            break;
        }
    }
    return nullptr;
}

}  // namespace ff
