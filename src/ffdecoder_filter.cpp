#include "ffdecoder_filter.h"

#include "base/log.h"

#include <framewell/media/ffmpeg_error.h>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdecoder";

}  // namespace

int excute_filting(AVFilterMgr* mgr, std::shared_ptr<AVFrame>& frame) {
    const int fed = mgr->buffersrc_add_frame_flags(frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF);
    if (fed < 0) {
        FW_LOG(2, "bg", "Error while feeding the filtergraph: err=%s", ffmpeg_error(fed));
        return fed;
    }
    frame = create_avframe_ptr(av_frame_alloc());
    if (!frame) {
        return AVERROR(ENOMEM);
    }
    const int got = mgr->buffersink_get_frame(frame.get());
    if (got < 0 && got != AVERROR(EAGAIN)) {
        FW_LOG(2, "bg", "[filter] buffersink error: %s", ffmpeg_error(got));
    }
    return got;
}

}  // namespace ff
