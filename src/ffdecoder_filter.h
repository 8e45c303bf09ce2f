#pragma once

#include "media/av_filter_mgr.h"

#include <memory>

namespace ff {

/// Sends a frame through a filter graph and puts what comes out in its place. The input itself is
/// not changed. >= 0 on success, else the negative error, which is logged except when the graph
/// just wants more input (AVERROR(EAGAIN)).
int excute_filting(AVFilterMgr* mgr, std::shared_ptr<AVFrame>& frame);

}  // namespace ff
