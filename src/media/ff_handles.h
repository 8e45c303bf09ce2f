#pragma once

// One owning handle per FFmpeg type, so that no error path has to free anything by hand.

#include "media/ff_compat.h"

#include <memory>

namespace ff {

/// Deletes through one of FFmpeg's functions that take the address of the pointer and clear it.
template <auto Free>
struct FreeByAddress {
    template <class T>
    void operator()(T* object) const {
        Free(&object);
    }
};

/// Deletes through one of FFmpeg's functions that take the pointer itself.
template <auto Free>
struct FreeByPointer {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

using FormatContextPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using FramePtr = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using DictPtr = std::unique_ptr<AVDictionary, FreeByAddress<av_dict_free>>;
using BufferRefPtr = std::unique_ptr<AVBufferRef, FreeByAddress<av_buffer_unref>>;
using FilterGraphPtr = std::unique_ptr<AVFilterGraph, FreeByAddress<avfilter_graph_free>>;
using FilterInOutPtr = std::unique_ptr<AVFilterInOut, FreeByAddress<avfilter_inout_free>>;
using SwsPtr = std::unique_ptr<SwsContext, FreeByPointer<sws_freeContext>>;
using SwrPtr = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, FreeByPointer<av_audio_fifo_free>>;

/// Wraps a frame in a shared handle that frees it. Frames that are cached or handed from thread to
/// thread travel in such handles, and nobody changes a frame once it is shared.
inline std::shared_ptr<AVFrame> create_avframe_ptr(AVFrame* frame) {
    return {frame, FreeByAddress<av_frame_free>()};
}

}  // namespace ff
