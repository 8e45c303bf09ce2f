#include <framewell/media/stream.h>

#include <algorithm>

namespace ff {

namespace {

template <class Predicate>
const StreamCtx* find_stream(const MovieCtx* movie, Predicate matches) {
    if (movie == nullptr) {
        return nullptr;
    }
    const int count = std::min(movie->nb_streams, MovieCtx::kMaxStreams);
    for (int i = 0; i < count; ++i) {
        const StreamCtx* const stream = movie->streams[i];
        if (stream != nullptr && matches(*stream)) {
            return stream;
        }
    }
    return nullptr;
}

}  // namespace

const StreamCtx* first_stream(const MovieCtx* movie, StreamType type) {
    return find_stream(movie, [type](const StreamCtx& stream) { return stream.type == type; });
}

const StreamCtx* stream_by_index(const MovieCtx* movie, int index) {
    return find_stream(movie, [index](const StreamCtx& stream) { return stream.index == index; });
}

}  // namespace ff
