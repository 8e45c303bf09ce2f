#include "media/frame_shelf.h"

#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace ff {

namespace {

// As many as a few workers need between giving one back and taking the next.
constexpr std::size_t kMaxKept = 16;

class FrameShelf {
public:
    FrameShelf() { m_frames.reserve(kMaxKept); }

    FramePtr take() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_frames.empty()) {
                FramePtr frame = std::move(m_frames.back());
                m_frames.pop_back();
                return frame;
            }
        }
        return FramePtr(av_frame_alloc());
    }

    void put(FramePtr frame) {
        av_frame_unref(frame.get());  // outside the lock: it may free much
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_frames.size() < kMaxKept) {
            m_frames.push_back(std::move(frame));
        }
    }

private:
    std::mutex m_mutex;
    std::vector<FramePtr> m_frames;  // guarded by m_mutex
};

/// Never destroyed: a host's own static objects may let go of frames later than ours would.
FrameShelf& shelf() {
    static auto* const the_shelf = new FrameShelf;
    return *the_shelf;
}

}  // namespace

std::shared_ptr<AVFrame> take_avframe_ptr() {
    FramePtr frame = shelf().take();
    if (!frame) {
        return nullptr;
    }
    return {frame.release(), [](AVFrame* used) { shelf().put(FramePtr(used)); }};
}

}  // namespace ff
