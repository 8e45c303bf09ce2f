#pragma once

#include <framewell/base/config.h>

#include <memory>
#include <vector>

/// @file
/// Hardware decoding: one device type for the whole library, chosen by the host before it opens
/// decoders. Whatever the device cannot do is decoded in software, with a line in the log.

struct AVCodec;
struct AVCodecContext;
struct AVFrame;

namespace ff {

struct HWDecoderPrivate;

/// Chooses the device type that video is decoded on from now on, by FFmpeg's name for it ("cuda",
/// "vaapi", "vdpau" ...).
///
///     if (!ff::hw_enable_device("vaapi")) {
///         // not a type that this FFmpeg knows: the earlier choice (none at first) stays
///     }
///     decoder.open(stream);  // decodes on the device if it can, else in software
///
/// A known name is not yet a device that works: that shows when a decoder is opened, and then
/// software is used without any error.
/// @param name  null or empty: the first type of hw_enum_devices().
/// @return      false if the name is unknown.
/// Logged (tag "hw", level 2): the default that was taken; an unknown name and the known ones.
/// Thread-safety: safe. Decoders that are already open keep what they have.
FRAMEWELL_API bool hw_enable_device(const char* name);

/// Turns hardware decoding off for decoders that are opened from now on. Logged at level 2.
/// Thread-safety: safe.
FRAMEWELL_API void hw_disable();

/// Returns the names of the device types that FFmpeg was built with, whether or not the machine has
/// such a device. The texts are static. Logged: the list, at level 2.
/// Thread-safety: safe.
FRAMEWELL_API std::vector<const char*> hw_enum_devices();

/// The process-wide choice of a hardware device, and the two steps of decoding that depend on it.
/// Hosts that only want their decoders accelerated use the three functions above.
///
/// Thread-safety: safe. A codec context itself belongs to one thread at a time.
class FRAMEWELL_API HWDecoder {
public:
    /// Returns the one object, which is never destroyed.
    static HWDecoder* instance();

    HWDecoder(const HWDecoder&) = delete;
    HWDecoder& operator=(const HWDecoder&) = delete;

    /// As hw_enum_devices().
    std::vector<const char*> enum_devices();

    /// As hw_enable_device().
    bool enable_device(const char* name);

    /// As hw_disable().
    void disable();

    /// Allocates a codec context for `codec`, set up for the chosen device if the codec is a video
    /// codec that can use it and the device can be created; else a plain software context, with the
    /// reason in the log (tag "hw", level 2; level 5 if no device is chosen).
    /// @return  a context to be opened with avcodec_open2. The caller owns it, calls
    ///          hw_codec_release() on it and then avcodec_free_context. A device context uses the
    ///          fields `opaque`, `get_format` and `hw_device_ctx`. Null: out of memory.
    AVCodecContext* hw_codec_alloc_context3(const AVCodec* codec);

    /// avcodec_receive_frame, with every picture in system memory: one that was decoded on a device
    /// is copied from it, usually as NV12. Its times, flags, aspect ratio and colour properties
    /// stay.
    /// @return  as avcodec_receive_frame; if a picture cannot be copied, the negative error and an
    ///          empty `frame`, and that picture is lost. Null arguments: negative.
    /// Logged (tag "hw", level 2): the first device picture of a context, and failures to copy.
    int hw_codec_receive_frame(AVCodecContext* ctx, AVFrame* frame);

private:
    HWDecoder();
    ~HWDecoder();

    std::unique_ptr<HWDecoderPrivate> m_private;
};

/// Takes back what hw_codec_alloc_context3() attached to the context and restores `opaque`. To be
/// called right before avcodec_free_context: packets that the decoder still holds are dropped. Null
/// and plain contexts are left as they are.
FRAMEWELL_API void hw_codec_release(AVCodecContext* ctx);

}  // namespace ff
