#pragma once

/// @file
/// What of the processor matters to tests: whether programs of this build are run by an emulator,
/// and where FFmpeg's pixels depend on it.

#include <string>
#include <vector>

namespace fw_test {

#ifdef FRAMEWELL_EMULATOR
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

/// Why a test that starts itself anew, as a death test may, is skipped where kEmulated is true.
constexpr const char* kCannotStartAnew = "the emulator does not start this program anew";

/// Returns the words that start a program of this build: behind what runs the test itself, if that
/// is an emulator.
inline std::vector<std::string> command_of(const std::string& program) {
#ifdef FRAMEWELL_EMULATOR
    return {FRAMEWELL_EMULATOR, program};
#else
    return {program};
#endif
}

#if defined(__x86_64__)
constexpr int kFastBilinearParts = 128;
#else
constexpr int kFastBilinearParts = 127;
#endif

/// Returns a value of chroma, the same everywhere in a picture, behind SWS_FAST_BILINEAR. FFmpeg's
/// code for all processors gives a pixel and its neighbour 127 of 128 parts together, that for x86
/// all.
constexpr int fast_bilinear_chroma(int value) {
    return value * kFastBilinearParts / 128;
}

/// How far red, green and blue may be from what they should be for that, in ITU-R BT.601: chroma
/// loses up to 2, of which 224 steps are 255, and blue has 1.772 of it.
constexpr double kFastBilinearRgbLoss = kFastBilinearParts == 128 ? 0 : 2 * 1.772 * 255 / 224;

}  // namespace fw_test
