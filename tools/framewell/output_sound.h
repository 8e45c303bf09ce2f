#pragma once

#include <framewell/frame.h>

#include <memory>
#include <string>
#include <string_view>

/// @file
/// Sound as bytes and as files.

namespace tool {

/// The samples of `sound`, the channels of one moment side by side. Valid as long as the record.
std::string_view sample_bytes(const ff::AFrameCtx& sound);

class SoundSink;

/// Where sound goes: what `-o` says. Spans that are written one after another are joined.
class SoundTarget {
public:
    /// Takes "-" (raw bytes on standard output) or a path that ends in .wav or .raw. Throws Failure
    /// (usage) if the text is neither.
    explicit SoundTarget(const std::string& text);
    SoundTarget(const SoundTarget&) = delete;
    SoundTarget& operator=(const SoundTarget&) = delete;

    /// A file that was not finished is removed.
    ~SoundTarget();

    bool is_standard_output() const;

    /// Appends the samples; the first ones decide what the file says of rate, channels and format.
    /// Throws Failure if they cannot be written, and removes the file.
    void write(const ff::AFrameCtx& sound);

    /// Completes the file. Throws Failure as write(). A file that got no sound is not made.
    void finish();

private:
    std::string m_path;  // empty: standard output
    bool m_is_wav = false;
    std::unique_ptr<SoundSink> m_sink;  // null before the first samples
};

}  // namespace tool
