#pragma once

#include "ffdec_task.h"
#include "tests/hw/libav_hooks.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"

#include <framewell/media/stream.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace fw_test {

/// A worker, with everything that it may be asked for. Every test begins and ends with libav as it
/// is.
class TaskFixture : public testing::Test {
protected:
    ~TaskFixture() override {
        g_hooks = Hooks();
        g_demux_hooks = DemuxHooks();
    }

    /// Opens the worker on the first stream of the file, and lists what a decode from its start
    /// gives, which other tests compare with the reference.
    void open(const std::string& path) {
        const LogCapture quiet;
        stream = probe(path)->streams[0];
        if (!task.open(stream)) {
            throw std::runtime_error("the worker cannot be opened on " + path);
        }
        Reader reader(path, stream->index);
        all.clear();
        while (reader.next() >= 0) {
            const bool is_picture = stream->type == ff::StreamType::Video;
            all.push_back({reader.frame->pts, is_picture ? picture_md5(*reader.frame) : ""});
        }
    }

    static Decoded decoded(const std::shared_ptr<AVFrame>& frame) {
        return frame ? Decoded{frame->pts, frame->width > 0 ? picture_md5(*frame) : ""} : Decoded();
    }

    Decoded at(long long ts, std::atomic<bool>* cancel = nullptr) {
        return decoded(task.get_frame(ts, false, cancel, ff::FFDec_Task::Ts_FLOOR));
    }

    Decoded after(long long ts) {
        return decoded(task.get_frame(ts, false, nullptr, ff::FFDec_Task::Ts_NEXT));
    }

    Decoded next(bool allow_last = false, std::atomic<bool>* cancel = nullptr) {
        const std::lock_guard<std::mutex> lock(task.m_mutex);
        return decoded(task.get_next_frame(cancel, allow_last));
    }

    /// The frame that covers `ts`, by looking at all.
    Decoded covering(long long ts) const {
        Decoded found = all.front();
        for (const Decoded& frame : all) {
            if (frame.pts <= ts) {
                found = frame;
            }
        }
        return found;
    }

    std::int64_t pts(std::size_t number) const { return all.at(number).pts; }

    const ff::StreamCtx* stream = nullptr;
    std::vector<Decoded> all;
    ff::FFDec_Task task;
};

inline const Decoded kNothing;

}  // namespace fw_test
