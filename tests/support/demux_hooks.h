#pragma once

/// @file
/// A demuxer and a decoder that fail, or that are watched. The test program defines some of libav's
/// functions itself (in ffdec_instance_test.cpp); its definitions come before those of the shared
/// libraries, and call them unless a test answers in their place.

#include "media/ff_compat.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace fw_test {

/// What is asked before libav's functions: an answer given here stands in for theirs. Set and reset
/// while no other thread decodes.
struct DemuxHooks {
    std::function<std::optional<int>(AVPacket*)> read_packet;
    std::function<std::optional<int>(int stream, std::int64_t ts, int flags)> seek;
    std::function<std::optional<int>(const AVPacket*)> send_packet;  ///< not while a file is opened
    std::optional<int> find_stream_info;
    std::optional<int> copy_parameters;
    std::optional<int> open_codec;
    std::optional<int> set_option;  ///< for the option "threads" only
};

extern DemuxHooks g_demux_hooks;

/// Takes the hooks of a test away when it ends.
struct HookScope {
    HookScope() = default;
    HookScope(const HookScope&) = delete;
    HookScope& operator=(const HookScope&) = delete;

    ~HookScope() { g_demux_hooks = DemuxHooks(); }
};

/// Watches the seeks of every demuxer, from its construction to its destruction.
class SeekLog {
public:
    SeekLog() {
        g_demux_hooks.seek = [this](int, std::int64_t ts, int) {
            m_targets.push_back(ts);
            return std::nullopt;
        };
    }

    SeekLog(const SeekLog&) = delete;
    SeekLog& operator=(const SeekLog&) = delete;

    ~SeekLog() { g_demux_hooks.seek = nullptr; }

    /// What av_seek_frame() was asked for, oldest first.
    const std::vector<std::int64_t>& targets() const { return m_targets; }

    bool empty() const { return m_targets.empty(); }

    void clear() { m_targets.clear(); }

private:
    std::vector<std::int64_t> m_targets;
};

}  // namespace fw_test
