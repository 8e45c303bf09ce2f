#pragma once

#include "media/ff_handles.h"

#include <framewell/hw/hw_decoder.h>

#include <atomic>
#include <mutex>

namespace ff {

/// The device type that is in use for the whole library, and the last device made of it. Contexts
/// hold references of their own, so `device_ref` may be replaced at any time.
struct HWDecoderPrivate {
    AVHWDeviceType type = AV_HWDEVICE_TYPE_NONE;  ///< none: off. Guarded by choice_mutex.
    BufferRefPtr device_ref;                      ///< Guarded by device_mutex.
    char name[32] = "";                           ///< the name of `type`. Guarded by choice_mutex.

    std::mutex choice_mutex;
    std::mutex device_mutex;  ///< never held together with choice_mutex
};

/// What a context that decodes on a device carries as its `opaque`. Decoding threads of libavcodec
/// write `state` (from 6.0 on they call get_format themselves) while the owner reads it.
struct HwFormatState {
    /// 1: device chosen, 2: first device picture received, 0: refused by get_format. The newest
    /// choice, which pictures that the decoder still holds back may precede.
    std::atomic<int> state;
    AVPixelFormat hw_pix_fmt;  ///< the format of pictures on the device
    void* previous_opaque;
};

/// Returns the state of a context that was set up for a device; null for any other context.
HwFormatState* hw_format_state(const AVCodecContext* ctx);

/// The get_format callback of device contexts: the device's format if it is among `fmts` (a list
/// that AV_PIX_FMT_NONE ends), else the first of `fmts`, with a line of level 2.
///
/// libavcodec asks again with a shorter list when the format that it was given cannot be set up.
/// Where the codec knows several kinds of devices, the first of a list without ours is another
/// device's format, so that one stream is refused 3 times on 5.1 and 4 times on 7.1 before software
/// remains.
AVPixelFormat get_hw_format(AVCodecContext* ctx, const AVPixelFormat* fmts);

/// Makes a device of the chosen type and lets `ctx` decode on it. Returns the negative error if
/// there is no such device (logged at level 2), and then leaves `ctx` as it is.
int hw_decoder_init(AVCodecContext* ctx, HWDecoderPrivate* priv);

}  // namespace ff
