#pragma once

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

#include <stdexcept>
#include <string>

namespace fw_test {

/// The first stream of that kind; throws if the file has none.
inline const ff::StreamCtx* stream_of(const std::string& path,
                                      ff::StreamType type = ff::StreamType::Video) {
    const ff::StreamCtx* const stream =
        ff::first_stream(ff::FFDecoder::probe(path.c_str(), nullptr), type);
    if (stream == nullptr) {
        throw std::runtime_error("nothing to decode in " + path);
    }
    return stream;
}

}  // namespace fw_test
