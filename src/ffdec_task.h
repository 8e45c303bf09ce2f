#pragma once

#include "ffdec_instance.h"
#include "media/ff_handles.h"
#include "scheduler.h"

#include <framewell/media/stream.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>

namespace ff {

/// One decoding worker of one stream: a demuxer and decoder of its own and a short cache of the
/// frames that it decoded last. Given a time it answers from the cache, decodes forward, or seeks
/// and decodes up to the time, whichever is cheapest.
///
/// All times are ticks of the stream. The frame at a time is the last frame whose own time is not
/// after it. A frame is never changed once it is in the cache.
///
/// Thread-safety: one job at a time, guarded by m_mutex, which do_job() releases when it ends.
/// Everything else is called by the holder of m_mutex.
class FFDec_Task final : public AbstractScheduler<std::shared_ptr<AVFrame>>::iWorker {
public:
    /// Which frame answers a time.
    enum Ts_ROUND {
        Ts_FLOOR = 0,  ///< the frame that covers it
        Ts_NEXT = 1,   ///< the first frame strictly after it
    };

    FFDec_Task() = default;
    FFDec_Task(const FFDec_Task&) = delete;
    FFDec_Task& operator=(const FFDec_Task&) = delete;
    ~FFDec_Task() override;

    /// Opens the worker on a stream. False if the stream is null or cannot be decoded (logged);
    /// true without any change if the worker is open already.
    bool open(const StreamCtx* stream);

    bool is_opened() const;

    /// Closes the demuxer and empties the cache. A worker that is marked broken stays so.
    void close();

    /// The frame at `ts`, by the cheapest way. Locks m_mutex unless `locked`, and releases it in
    /// either case. Empty: cancelled, broken, nothing decodable or no such frame.
    std::shared_ptr<AVFrame> get_frame(long long ts, bool locked, std::atomic<bool>* cancel,
                                       Ts_ROUND mode);

    /// The frame after the current position. At the end of the stream the newest frame if
    /// `allow_last`, else empty. The caller holds m_mutex and keeps it.
    std::shared_ptr<AVFrame> get_next_frame(std::atomic<bool>* cancel, bool allow_last);

    /// Empties the cache.
    void clear_cache_frames();

    bool is_empty() const override;
    long long cached_first_ts() const override;
    bool is_contain(long long ts, bool mode) override;
    bool will_contain(long long ts) override;
    std::shared_ptr<AVFrame> get_exist_resource(long long ts, bool mode) override;
    std::shared_ptr<AVFrame> do_job(long long ts, bool locked, std::atomic<bool>* cancel,
                                    bool mode) override;

private:
    struct DecodeRun;

    enum class Decision { Answer, DecodeForward, Seek };

    std::shared_ptr<AVFrame> pri_get_frame(long long ts, std::atomic<bool>* cancel, Ts_ROUND mode);
    Decision decide(long long ts, Ts_ROUND mode, std::shared_ptr<AVFrame>* answer) const;
    bool pri_is_contain(long long ts, Ts_ROUND mode) const;
    std::shared_ptr<AVFrame> get_frame_from_cache(long long ts, Ts_ROUND mode) const;
    bool is_within_reach(std::int64_t from, long long ts) const;

    std::shared_ptr<AVFrame> decode_until(DecodeRun* run);
    bool goes_on_after(DecodeRun* run, int decoded, std::shared_ptr<AVFrame>* frame);
    static bool lies_past(const DecodeRun& run, const AVFrame& frame);
    bool retry_after_error(DecodeRun* run, int error);
    static bool may_try_again(int* tries);
    bool accept_frame(DecodeRun* run, const std::shared_ptr<AVFrame>& frame);
    void answer_at_end(DecodeRun* run);
    bool step_back(DecodeRun* run, std::int64_t frame_time, bool at_end);
    bool seek_earlier(DecodeRun* run, std::int64_t frame_time);
    std::shared_ptr<AVFrame> decode_one_more(std::atomic<bool>* cancel, bool allow_last);

    void repair_time(AVFrame* frame) const;
    void evict_oldest_if_full();
    void insert_into_cache(std::shared_ptr<AVFrame> frame);
    std::int64_t last_known_end() const;
    void report_broken();

    const StreamCtx* m_stream = nullptr;
    std::unique_ptr<Instance> m_instance;
    PacketPtr m_packet;             // lent to m_instance for reading
    std::int64_t m_cur_ts = 0;      // of the frame handed out last, or of the request in work
    std::int64_t m_one_second = 0;  // ticks, at least 1 once open
    std::list<std::shared_ptr<AVFrame>> m_frames;  // oldest first
    bool m_at_head = false;  // nothing of the stream lies before the oldest cached frame
    bool m_at_eof = false;   // nothing of the stream lies after the newest cached frame
    bool m_broken = false;   // the file ended where it should not; never cleared
    bool m_broken_reported = false;
    std::int64_t m_newest_seen = AV_NOPTS_VALUE;  // the latest time of any frame decoded so far
    int m_max_frames = 0;
    int m_ahead_seconds = 2;  // decode forward this far rather than seek
};

}  // namespace ff
