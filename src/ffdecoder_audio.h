#pragma once

#include <framewell/media/range.h>

namespace ff {

class FFDecoderPrivate;

/// True when `range` (media time, seconds) does not begin where the last span ended; a new run of
/// samples begins then, and what is left in the FIFO is dropped. Call with the decoder locked.
bool is_audio_ts_discontinuous(FFDecoderPrivate* priv, const Range& range);

}  // namespace ff
