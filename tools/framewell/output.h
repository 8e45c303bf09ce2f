#pragma once

#include "image.h"

#include <framewell/frame.h>

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// Pictures as bytes and as files.

namespace tool {

/// The visible bytes of a picture: its planes in order, rows without padding, as FFmpeg lays out a
/// raw picture of that format and size. Throws Failure if the picture has no such form.
std::vector<std::uint8_t> visible_bytes(const ff::VFrameCtx& picture);

/// The picture as interleaved RGBA pixels; 16 bits per channel if it has them.
Image image_of(const ff::VFrameCtx& picture);

/// Throws Failure (usage) if `path`, what `-o` says, does not end in .png, .jpg or .jpeg.
void check_image_path(const std::string& path);

/// Writes `image` to the file, of the kind that its name says. A file that cannot be written
/// completely is removed again, and Failure thrown.
void write_image(const std::string& path, const Image& image);

/// How a picture is written.
enum class FileKind { Png, Jpeg, Raw };

/// Where pictures go: what `-o` says.
class PictureTarget {
public:
    /// Takes "-" (raw bytes on standard output) or a path that ends in .png, .jpg, .jpeg or .raw;
    /// a "%d" or "%04d" in it stands for the picture's number.
    /// @param many  more than one picture may come, so a path must have a number in it.
    /// Throws Failure (usage) if the text is none of these.
    PictureTarget(const std::string& text, bool many);

    bool is_standard_output() const { return m_is_standard_output; }

    /// The degrees clockwise, 0, 90, 180 or 270, by which write() turns pictures of a stream with
    /// this rotation. 0 for raw bytes and for angles that are no multiple of 90.
    int turned_by(double rotation) const;

    /// Writes `picture` and returns its path; empty for standard output. A file that cannot be
    /// written completely is removed again, and Failure thrown.
    /// @param number    of the request, from 1 on: it replaces the "%d".
    /// @param rotation  of the stream, degrees clockwise; see turned_by().
    std::string write(const ff::VFrameCtx& picture, int number, double rotation) const;

private:
    std::string path_of(int number) const;

    bool m_is_standard_output = false;
    FileKind m_kind = FileKind::Raw;
    std::string m_before;          // the path, up to the number if it has one
    std::string m_after;           // what follows the number
    std::size_t m_min_digits = 0;  // zeros fill up shorter numbers
    bool m_has_number = false;
};

}  // namespace tool
