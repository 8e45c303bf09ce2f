#include "output.h"

#include "image.h"
#include "report.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace tool {

namespace {

struct Free {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }

    void operator()(AVFrame* frame) const { av_frame_free(&frame); }

    void operator()(AVPacket* packet) const { av_packet_free(&packet); }

    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

template <class T>
using Owned = std::unique_ptr<T, Free>;

template <class T>
Owned<T> owned(T* object) {
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return Owned<T>(object);
}

void check(int result, const char* what) {
    if (result < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = "";
        (void)av_strerror(result, text, sizeof text);  // it writes a text for unknown codes, too
        throw Failure(std::string(what) + " failed: " + text + "; try another format or size");
    }
}

// Converts a picture to another format at its own size. Full chroma interpolation, since these
// pictures are made to be looked at.
void convert(const std::uint8_t* const* from, const int* from_rows, AVPixelFormat from_format,
             const AVFrame& to) {
    const auto to_format = static_cast<AVPixelFormat>(to.format);
    const Owned<SwsContext> scaler(sws_getContext(
        to.width, to.height, from_format, to.width, to.height, to_format,
        SWS_BICUBIC | SWS_FULL_CHR_H_INT | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (scaler == nullptr) {
        throw Failure("the picture cannot be converted for its file; try another --format");
    }
    check(sws_scale(scaler.get(), from, from_rows, 0, to.height, to.data, to.linesize),
          "converting the picture");
}

Owned<AVFrame> make_frame(int width, int height, AVPixelFormat format) {
    Owned<AVFrame> frame = owned(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = format;
    check(av_frame_get_buffer(frame.get(), 0), "making a picture");
    return frame;
}

// For each byte of an RGBA pixel of an Image, the place of that byte in a pixel of `format`. Empty
// for formats that have no such pixels. Rearranged by hand, since swscale does not keep all 16
// bits.
std::vector<std::size_t> byte_places(AVPixelFormat format) {
    switch (format) {
        case AV_PIX_FMT_RGBA:
            return {0, 1, 2, 3};
        case AV_PIX_FMT_BGRA64BE:
            return {4, 5, 2, 3, 0, 1, 6, 7};
        case AV_PIX_FMT_BGRA64LE:
            return {5, 4, 3, 2, 1, 0, 7, 6};
        default:
            return {};
    }
}

Image rearranged(const std::uint8_t* data, int row_bytes, int width, int height,
                 const std::vector<std::size_t>& places) {
    Image image;
    image.width = width;
    image.height = height;
    image.bytes_per_channel = static_cast<int>(places.size()) / image.channels;
    image.bytes.reserve(image.row_bytes() * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* pixel = data + static_cast<std::ptrdiff_t>(y) * row_bytes;
        for (int x = 0; x < width; ++x) {
            for (const std::size_t place : places) {
                image.bytes.push_back(pixel[place]);
            }
            pixel += places.size();
        }
    }
    return image;
}

AVPixelFormat format_of(const Image& image) {
    if (image.bytes_per_channel == 2) {
        return image.channels == 4 ? AV_PIX_FMT_RGBA64BE : AV_PIX_FMT_RGB48BE;
    }
    return image.channels == 4 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24;
}

// A frame with the image's pixels in `format`. Converted from a frame, not from the image itself:
// the scaler may read some bytes past a row, and only a frame has room for that.
Owned<AVFrame> to_frame(const Image& image, AVPixelFormat format) {
    Owned<AVFrame> frame = make_frame(image.width, image.height, format_of(image));
    const std::uint8_t* planes[4] = {image.bytes.data(), nullptr, nullptr, nullptr};
    const int rows[4] = {static_cast<int>(image.row_bytes()), 0, 0, 0};
    av_image_copy(frame->data, frame->linesize, planes, rows, format_of(image), image.width,
                  image.height);
    if (format == format_of(image)) {
        return frame;
    }
    Owned<AVFrame> converted = make_frame(image.width, image.height, format);
    convert(frame->data, frame->linesize, format_of(image), *converted);
    return converted;
}

// One picture through one of FFmpeg's encoders for stills.
std::vector<std::uint8_t> encode(AVCodecID id, const Image& image, AVPixelFormat format) {
    const AVCodec* const codec = avcodec_find_encoder(id);
    if (codec == nullptr) {
        throw Failure(std::string("this FFmpeg has no encoder for ") + avcodec_get_name(id) +
                      "; write another kind of file");
    }
    const Owned<AVCodecContext> encoder = owned(avcodec_alloc_context3(codec));
    encoder->width = image.width;
    encoder->height = image.height;
    encoder->pix_fmt = format;
    encoder->time_base = {1, 25};  // asked for, without a meaning for a still
    encoder->thread_count = 1;
    // 2 of 2 to 31, the best that JPEG is made with here; PNG is lossless and does not look at it.
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = 2 * FF_QP2LAMBDA;
    check(avcodec_open2(encoder.get(), codec, nullptr), "opening the encoder");

    const Owned<AVFrame> frame = to_frame(image, format);
    frame->quality = encoder->global_quality;
    frame->pts = 0;
    check(avcodec_send_frame(encoder.get(), frame.get()), "encoding the picture");
    check(avcodec_send_frame(encoder.get(), nullptr), "encoding the picture");
    const Owned<AVPacket> packet = owned(av_packet_alloc());
    check(avcodec_receive_packet(encoder.get(), packet.get()), "encoding the picture");
    return {packet->data, packet->data + packet->size};
}

std::vector<std::uint8_t> file_bytes(FileKind kind, const Image& image) {
    if (kind == FileKind::Png) {
        return encode(AV_CODEC_ID_PNG, image, format_of(image));
    }
    return encode(AV_CODEC_ID_MJPEG, image, AV_PIX_FMT_YUVJ420P);
}

std::vector<std::uint8_t> file_bytes(FileKind kind, const ff::VFrameCtx& picture, int quarters) {
    if (kind == FileKind::Raw) {
        return visible_bytes(picture);
    }
    return file_bytes(kind, without_opaque_alpha(turned(image_of(picture), quarters)));
}

[[noreturn]] void fail_writing(const std::string& path, int code) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) {
        std::filesystem::remove(path, ignored);  // half a picture is worse than none
    }
    throw Failure(path + ": cannot be written (" + system_error_text(code) +
                  "); check the folder, its permissions and the space left");
}

void write_file(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    errno = 0;
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        const int code = errno;
        throw Failure(path + ": cannot be written (" + system_error_text(code) +
                      "); check the folder and its permissions");
    }
    const bool complete = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const int write_code = errno;
    // Only closing shows whether the last bytes had room.
    if (std::fclose(file) != 0) {
        fail_writing(path, complete ? errno : write_code);
    }
    if (!complete) {
        fail_writing(path, write_code);
    }
}

FileKind kind_of(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".png") {
        return FileKind::Png;
    }
    if (extension == ".jpg" || extension == ".jpeg") {
        return FileKind::Jpeg;
    }
    if (extension == ".raw") {
        return FileKind::Raw;
    }
    throw Failure("-o " + path +
                      ": end the name in .png, .jpg or .raw, or use - for raw bytes on "
                      "standard output",
                  Exit::Usage);
}

}  // namespace

std::vector<std::uint8_t> visible_bytes(const ff::VFrameCtx& picture) {
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const int size = av_image_get_buffer_size(format, picture.width, picture.height, 1);
    check(size, "measuring the picture");
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    check(av_image_copy_to_buffer(bytes.data(), size, picture.data, picture.linesize, format,
                                  picture.width, picture.height, 1),
          "copying the picture");
    return bytes;
}

Image image_of(const ff::VFrameCtx& picture) {
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const std::vector<std::size_t> places = byte_places(format);
    if (!places.empty()) {
        return rearranged(picture.data[0], picture.linesize[0], picture.width, picture.height,
                          places);
    }
    const Owned<AVFrame> frame = make_frame(picture.width, picture.height, AV_PIX_FMT_RGBA);
    convert(picture.data, picture.linesize, format, *frame);
    return rearranged(frame->data[0], frame->linesize[0], picture.width, picture.height,
                      byte_places(AV_PIX_FMT_RGBA));
}

void check_image_path(const std::string& path) {
    if (path == "-" || kind_of(path) == FileKind::Raw) {
        throw Failure("-o " + path + ": end the name in .png or .jpg", Exit::Usage);
    }
}

void write_image(const std::string& path, const Image& image) {
    write_file(path, file_bytes(kind_of(path), image));
}

PictureTarget::PictureTarget(const std::string& text, bool many) {
    if (text == "-") {
        m_is_standard_output = true;
        return;
    }
    m_kind = kind_of(text);
    m_before = text;
    // "%d" or "%04d"; any other per cent sign is part of the name.
    for (std::size_t start = text.find('%'); start != std::string::npos;
         start = text.find('%', start + 1)) {
        const std::size_t end = text.find_first_not_of("0123456789", start + 1);
        if (end != std::string::npos && text[end] == 'd' && end - start <= 3) {
            m_has_number = true;
            m_before = text.substr(0, start);
            m_after = text.substr(end + 1);
            const std::string digits = text.substr(start + 1, end - start - 1);
            m_min_digits = digits.empty() ? 0 : static_cast<std::size_t>(std::stoi(digits));
            break;
        }
    }
    if (many && !m_has_number) {
        throw Failure("-o " + text + ": several pictures need a %d in the name, as in pic-%d.png",
                      Exit::Usage);
    }
}

int PictureTarget::turned_by(double rotation) const {
    return m_kind == FileKind::Raw ? 0 : 90 * quarter_turns(rotation);
}

std::string PictureTarget::path_of(int number) const {
    if (!m_has_number) {
        return m_before;
    }
    std::string digits = std::to_string(number);
    if (digits.size() < m_min_digits) {
        digits.insert(0, m_min_digits - digits.size(), '0');
    }
    return m_before + digits + m_after;
}

std::string PictureTarget::write(const ff::VFrameCtx& picture, int number, double rotation) const {
    if (m_is_standard_output) {
        const std::vector<std::uint8_t> bytes = visible_bytes(picture);
        write_out({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        return {};
    }
    std::string path = path_of(number);
    write_file(path, file_bytes(m_kind, picture, turned_by(rotation) / 90));
    return path;
}

}  // namespace tool
