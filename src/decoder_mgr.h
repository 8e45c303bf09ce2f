#pragma once

#include "scheduler.h"

#include <memory>
#include <mutex>
#include <unordered_map>

struct AVFrame;

namespace ff {

struct StreamCtx;

/// The registry of pools: one scheduler per stream record, known by the record's address.
/// Ownership: owns the schedulers; none is ever erased, so their addresses stay valid.
/// Thread-safety: safe.
class DecoderMgr {
public:
    using Scheduler = AbstractScheduler<std::shared_ptr<AVFrame>>;

    DecoderMgr() = default;
    DecoderMgr(const DecoderMgr&) = delete;
    DecoderMgr& operator=(const DecoderMgr&) = delete;
    ~DecoderMgr() = default;

    /// Returns the scheduler of `stream`, made empty on first use; valid for good.
    Scheduler& scheduler_of(const StreamCtx* stream) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_schedulers[stream];
    }

private:
    std::unordered_map<const StreamCtx*, Scheduler> m_schedulers;  // guarded by m_mutex
    std::mutex m_mutex;  // never held while a scheduler works
};

/// Returns the one registry of the process. It is made on first use and never destroyed: decoders
/// that are static objects of a host may come before and go after every static object of ours.
inline DecoderMgr& g_decoder_mgr() {
    static DecoderMgr& mgr = *new DecoderMgr;
    return mgr;
}

}  // namespace ff
