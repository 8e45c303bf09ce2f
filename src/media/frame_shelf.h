#pragma once

#include "media/ff_handles.h"

#include <memory>

namespace ff {

/// An empty frame in a shared handle, like create_avframe_ptr(av_frame_alloc()) but cheaper where
/// frames come and go by the thousand: when the last handle goes, the frame's contents are released
/// at once, and the record itself is kept for the next call. Empty if there is no memory.
/// Thread-safety: safe; handles may go on any thread, also while the process ends.
std::shared_ptr<AVFrame> take_avframe_ptr();

}  // namespace ff
