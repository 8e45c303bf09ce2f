#include "hw/hw_decoder.h"

#include "base/log.h"
#include "media/ffmpeg_report.h"

#include <cstdio>
#include <string>
#include <utility>

namespace ff {
namespace {

constexpr char kLogSource[] = "src/hw/hw_decoder";

/// Whether the FFmpeg libraries that are loaded are those that this was built for; logged if not.
bool is_ffmpeg_usable() {
    const std::string refusal = ffmpeg_refusal();
    if (!refusal.empty()) {
        FW_LOG(2, "hw", "FFmpeg is refused: %s", refusal.c_str());
    }
    return refusal.empty();
}

/// One consistent copy of what the host chose.
struct DeviceChoice {
    AVHWDeviceType type;
    std::string name;
};

DeviceChoice current_choice(HWDecoderPrivate* priv) {
    const std::lock_guard<std::mutex> lock(priv->choice_mutex);
    return {priv->type, priv->name};
}

/// The way in which `codec` decodes on a device of this type; null if it cannot.
const AVCodecHWConfig* find_hw_config(const AVCodec* codec, AVHWDeviceType type) {
    for (int i = 0;; ++i) {
        const AVCodecHWConfig* const config = avcodec_get_hw_config(codec, i);
        if (config == nullptr ||
            ((config->methods & AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX) != 0 &&
             config->device_type == type)) {
            return config;
        }
    }
}

/// Makes a device of this type and gives `ctx` a reference to it. Negative, logged, if it fails.
int create_device_for(AVCodecContext* ctx, HWDecoderPrivate* priv, const DeviceChoice& choice) {
    BufferRefPtr former;  // released after the lock: closing a device may take long
    // One device at a time: drivers are not all safe against being started by two threads at once.
    const std::lock_guard<std::mutex> lock(priv->device_mutex);
    AVBufferRef* created = nullptr;
    int r = av_hwdevice_ctx_create(&created, choice.type, nullptr, nullptr, 0);
    BufferRefPtr device(created);
    BufferRefPtr reference(r >= 0 ? av_buffer_ref(created) : nullptr);
    if (r >= 0 && !reference) {
        r = AVERROR(ENOMEM);
    }
    if (r < 0) {
        FW_LOG(2, "hw", "Failed to create specified HW device. ==> %s", choice.name.c_str());
        return r;
    }
    former = std::exchange(priv->device_ref, std::move(device));
    av_buffer_unref(&ctx->hw_device_ctx);
    ctx->hw_device_ctx = reference.release();  // the context owns it from here on
    return r;
}

/// The name of the device that `ctx` decodes on, which is not the chosen one if the host has chosen
/// another since.
const char* device_name_of(const AVCodecContext& ctx) {
    const auto* const device = reinterpret_cast<const AVHWDeviceContext*>(ctx.hw_device_ctx->data);
    return av_hwdevice_get_type_name(device->type);
}

/// Copies what a picture keeps when it moves to another buffer. The transfer copies pixels only.
void copy_picture_fields(AVFrame* to, const AVFrame& from) {
    to->pts = from.pts;
    to->pkt_dts = from.pkt_dts;
    to->best_effort_timestamp = from.best_effort_timestamp;
    compat::copy_picture_number(to, from);
    // Without its duration the pictures that follow one of unknown time would all get the same
    // time; without its flags a damaged picture would pass for a good one; without the aspect ratio
    // and the colour properties it would be described and converted otherwise than its software
    // twin. Nothing else is read further up.
    compat::set_frame_duration(to, compat::frame_duration(from));
    to->flags = from.flags;
    to->decode_error_flags = from.decode_error_flags;
    to->sample_aspect_ratio = from.sample_aspect_ratio;
    to->color_range = from.color_range;
    to->color_primaries = from.color_primaries;
    to->color_trc = from.color_trc;
    to->colorspace = from.colorspace;
    to->chroma_location = from.chroma_location;
}

/// Replaces a picture on the device by its copy in system memory; on failure `frame` is empty.
int transfer_to_system_memory(AVFrame* frame) {
    const FramePtr copy(av_frame_alloc());
    const int r = copy ? av_hwframe_transfer_data(copy.get(), frame, 0) : AVERROR(ENOMEM);
    if (r < 0) {
        FW_LOG(2, "hw", "[hwdec] error transferring the data to system memory");
        av_frame_unref(frame);
        return r;
    }
    copy_picture_fields(copy.get(), *frame);
    av_frame_unref(frame);
    av_frame_move_ref(frame, copy.get());
    return r;
}

}  // namespace

HWDecoder* HWDecoder::instance() {
    // Never destroyed: decoders may still run while a process exits.
    static auto* const s_instance = new HWDecoder;
    return s_instance;
}

HWDecoder::HWDecoder() : m_private(std::make_unique<HWDecoderPrivate>()) {}

HWDecoder::~HWDecoder() = default;

std::vector<const char*> HWDecoder::enum_devices() {
    if (!is_ffmpeg_usable()) {
        return {};
    }
    std::vector<const char*> names;
    std::string list;
    AVHWDeviceType type = AV_HWDEVICE_TYPE_NONE;
    while ((type = av_hwdevice_iterate_types(type)) != AV_HWDEVICE_TYPE_NONE) {
        names.push_back(av_hwdevice_get_type_name(type));
        list.append(names.back()).append(",");
    }
    FW_LOG(2, "hw", "[hw]# available device types: %s", list.c_str());
    return names;
}

bool HWDecoder::enable_device(const char* name) {
    if (!is_ffmpeg_usable()) {
        return false;
    }
    std::string wanted = name != nullptr ? name : "";
    if (wanted.empty()) {
        const std::vector<const char*> names = enum_devices();
        if (!names.empty()) {
            wanted = names.front();
            FW_LOG(2, "hw", "[hw]# Use default HWDevice: '%s'", wanted.c_str());
        }
    }
    const AVHWDeviceType type = av_hwdevice_find_type_by_name(wanted.c_str());
    if (type == AV_HWDEVICE_TYPE_NONE) {
        FW_LOG(2, "hw", "Device type '%s' is not supported.", wanted.c_str());
        (void)enum_devices();  // for the log, which then shows the names that would have done
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_private->choice_mutex);
    m_private->type = type;
    (void)std::snprintf(m_private->name, sizeof m_private->name, "%s", wanted.c_str());
    return true;
}

void HWDecoder::disable() {
    {
        const std::lock_guard<std::mutex> lock(m_private->choice_mutex);
        m_private->type = AV_HWDEVICE_TYPE_NONE;
    }
    FW_LOG(2, "hw", "disable HWdevice, 用户选择禁用硬件解码器");
}

AVCodecContext* HWDecoder::hw_codec_alloc_context3(const AVCodec* codec) {
    if (!is_ffmpeg_usable()) {
        return nullptr;
    }
    if (codec == nullptr || codec->type != AVMEDIA_TYPE_VIDEO) {
        return avcodec_alloc_context3(codec);
    }
    const DeviceChoice choice = current_choice(m_private.get());
    if (choice.type == AV_HWDEVICE_TYPE_NONE) {
        FW_LOG(5, "hw", "type==none, 用户未启用硬件解码");
        return avcodec_alloc_context3(codec);
    }
    const AVCodecHWConfig* const config = find_hw_config(codec, choice.type);
    if (config == nullptr) {
        FW_LOG(2, "hw", "Decoder '%s' does not support device type '%s'", codec->name,
               choice.name.c_str());
        return avcodec_alloc_context3(codec);
    }
    CodecContextPtr ctx(avcodec_alloc_context3(codec));
    if (!ctx || config->pix_fmt == AV_PIX_FMT_NONE) {
        return ctx.release();  // the caller owns it, here and below
    }
    const auto former_get_format = ctx->get_format;
    ctx->get_format = get_hw_format;
    auto state = std::make_unique<HwFormatState>();
    if (create_device_for(ctx.get(), m_private.get(), choice) < 0) {
        ctx->get_format = former_get_format;
        return ctx.release();
    }
    state->state = 1;
    state->hw_pix_fmt = config->pix_fmt;
    state->previous_opaque = ctx->opaque;
    ctx->opaque = state.release();  // freed by hw_codec_release()
    return ctx.release();
}

int HWDecoder::hw_codec_receive_frame(AVCodecContext* ctx, AVFrame* frame) {
    if (!is_ffmpeg_usable()) {
        return AVERROR(ENOSYS);
    }
    if (ctx == nullptr || frame == nullptr) {
        FW_LOG(2, "hw", "[hwdec] no codec context or no frame to receive into");
        return AVERROR(EINVAL);
    }
    const int r = avcodec_receive_frame(ctx, frame);
    if (r != 0) {
        return r;
    }
    // What counts is how this picture was decoded. The host may have chosen otherwise since, or
    // get_format may have refused a later change of format while this picture was held back for
    // reordering; a device picture handed on would be unreadable to everything that follows.
    HwFormatState* const state = hw_format_state(ctx);
    if (state == nullptr || frame->format != state->hw_pix_fmt) {
        return 0;
    }
    int unconfirmed = 1;
    if (state->state.compare_exchange_strong(unconfirmed, 2)) {
        FW_LOG(2, "hw", "[hwdec] device '%s' is OK for '%s'", device_name_of(*ctx),
               avcodec_get_name(ctx->codec_id));
    }
    return transfer_to_system_memory(frame);
}

HwFormatState* hw_format_state(const AVCodecContext* ctx) {
    // The callback tells our own `opaque` from one that somebody else put there.
    return ctx != nullptr && ctx->get_format == get_hw_format
               ? static_cast<HwFormatState*>(ctx->opaque)
               : nullptr;
}

AVPixelFormat get_hw_format(AVCodecContext* ctx, const AVPixelFormat* fmts) {
    if (fmts == nullptr) {
        return AV_PIX_FMT_NONE;
    }
    HwFormatState* const state = hw_format_state(ctx);
    if (state == nullptr) {
        return fmts[0];
    }
    for (const AVPixelFormat* fmt = fmts; *fmt != AV_PIX_FMT_NONE; ++fmt) {
        if (*fmt == state->hw_pix_fmt) {
            return *fmt;
        }
    }
    state->state = 0;
    FW_LOG(2, "hw", "Failed to get HW surface format. 当前硬解码不支持该像素格式");
    return fmts[0];
}

int hw_decoder_init(AVCodecContext* ctx, HWDecoderPrivate* priv) {
    if (ctx == nullptr || priv == nullptr) {
        FW_LOG(2, "hw", "[hwdec] no codec context or no device choice to set up");
        return AVERROR(EINVAL);
    }
    return create_device_for(ctx, priv, current_choice(priv));
}

void hw_codec_release(AVCodecContext* ctx) {
    if (ctx == nullptr || !is_ffmpeg_usable()) {
        return;
    }
    const std::unique_ptr<HwFormatState> state(hw_format_state(ctx));
    if (!state) {
        return;
    }
    if (avcodec_is_open(ctx) != 0) {
        // Decoding threads may be inside get_format, reading the state; this waits for them.
        avcodec_flush_buffers(ctx);
    }
    ctx->get_format = avcodec_default_get_format;
    ctx->opaque = state->previous_opaque;
}

bool hw_enable_device(const char* name) {
    return HWDecoder::instance()->enable_device(name);
}

void hw_disable() {
    HWDecoder::instance()->disable();
}

std::vector<const char*> hw_enum_devices() {
    return HWDecoder::instance()->enum_devices();
}

}  // namespace ff
