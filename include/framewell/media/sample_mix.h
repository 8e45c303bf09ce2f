#pragma once

#include <framewell/base/config.h>

#include <cstdint>

/// @file
/// Mixing and measuring raw samples: bytes in, bytes out, nothing else needed. The names stand in
/// the global namespace.
///
/// Samples are interleaved, so the channel count does not matter, and may begin at any address. On
/// x86-64 the processor's AVX2 is used where it has it, else SSE2, and on 64-bit Arm NEON; what
/// comes out is the same to the last byte on all of them.

/// How samples are stored.
///
/// | Code | Samples                        | Code | Samples                     |
/// |------|--------------------------------|------|-----------------------------|
/// | 0    | unsigned 8-bit                 | 5    | unsigned 16-bit, big-endian |
/// | 1    | signed 8-bit                   | 6    | signed 32-bit, little-endian|
/// | 2    | signed 16-bit, little-endian   | 7    | signed 32-bit, big-endian   |
/// | 3    | signed 16-bit, big-endian      | 8    | 32-bit float, little-endian |
/// | 4    | unsigned 16-bit, little-endian | 9    | 32-bit float, big-endian    |
using SDL_AudioFormat = std::uint32_t;

/// Adds the samples at `src`, made quieter by `volume`, onto those at `dst`, and clips.
///
/// With d and s for a sample of each, divisions towards zero, and all exact:
/// - integers: d + s * volume / 128, clipped to the format's range. Unsigned samples are taken as
///   their distance from the middle (128, 32768). An unsigned 8-bit sample is clipped to 0 ... 254,
///   not 255.
/// - float: d + s * volume * 0.0078125, each product rounded to float, clipped to plus and minus
///   the largest float. Nothing is clipped at 1.0. An infinite sum is clipped as well; where a NaN
///   comes in, or infinities cancel out, the sum is the quiet NaN 0x7FC00000.
///
/// @param dst     changed in place; may be the same block as `src`, but not overlap it otherwise.
/// @param format  one of the codes above; any other: a line on standard error by perror(), and
///                `dst` stays as it is.
/// @param len     bytes in each of the two blocks; a part of a sample at the end is left alone.
/// @param volume  0: `dst` stays as it is, whatever the format; 128: `src` as it is. Other values
///                follow the rule above; for unsigned 8-bit the product wraps in 8 bits.
/// With a null block nothing happens.
/// Thread-safety: safe, as long as no other thread writes to the blocks.
FRAMEWELL_API void SDL_MixAudioFormat(std::uint8_t* dst, const std::uint8_t* src,
                                      SDL_AudioFormat format, std::uint32_t len, int volume);

/// Returns how loud the loudest sample is: peak / full * `scale`, computed in double precision and
/// cut to an integer.
///
/// | Code       | Peak                                                        | Full          |
/// |------------|-------------------------------------------------------------|---------------|
/// | 0          | largest byte as it is stored, so silence gives 128          | 127           |
/// | 1          | largest absolute value, where -128 is 128                   | 127           |
/// | 2, 3       | largest sample read as unsigned, so -1 gives 65535          | 32767         |
/// | 6, 7       | largest absolute value                                      | 2147483647    |
/// | 8, 9       | largest absolute value; a NaN does not count                | largest float |
/// | all others | 0                                                           | 1             |
///
/// Hosts whose meters want the plain level of 16-bit or float sound compute it themselves: these
/// readings are what existing meters were made for.
///
/// @param data   samples; a part of one at the end does not count.
/// @param len    bytes.
/// @param scale  the result for full scale.
/// @return       0 for an empty block, a null one, and where the value would be negative or not a
///               number; UINT32_MAX where it would be larger than that.
/// Thread-safety: safe.
FRAMEWELL_API std::uint32_t Audio_Volume_Peak(SDL_AudioFormat format, const std::uint8_t* data,
                                              std::uint32_t len, int scale);
