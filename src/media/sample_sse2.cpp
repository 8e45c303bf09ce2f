// Sixteen bytes at a time with SSE2, which every x86-64 processor has.

#include "media/sample_lanes.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#define FW_LANE inline

namespace ff::lanes {

namespace {

using Ints = __m128i;

constexpr const char* kPathName = "SSE2";
constexpr std::size_t kVectorBytes = sizeof(Ints);

FW_LANE Ints load(const std::uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const Ints*>(p));
}

FW_LANE void store(std::uint8_t* p, Ints v) {
    _mm_storeu_si128(reinterpret_cast<Ints*>(p), v);
}

FW_LANE Ints fill8(int value) {
    return _mm_set1_epi8(static_cast<char>(value));
}

FW_LANE Ints fill16(int value) {
    return _mm_set1_epi16(static_cast<std::int16_t>(value));
}

FW_LANE Ints flip(Ints a, Ints b) {
    return _mm_xor_si128(a, b);
}

FW_LANE Ints swap16(Ints v) {
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

FW_LANE Ints swap32(Ints v) {
    constexpr int halves = _MM_SHUFFLE(2, 3, 0, 1);
    return swap16(_mm_shufflehi_epi16(_mm_shufflelo_epi16(v, halves), halves));
}

/// Takes `b` where `mask` is all ones, else `a`.
FW_LANE Ints select(Ints a, Ints b, Ints mask) {
    return _mm_or_si128(_mm_and_si128(mask, b), _mm_andnot_si128(mask, a));
}

// A product's high half is what the multiplication leaves out of 32 bits, so the volume is shifted
// to where dividing by 65536 is dividing by 128. It rounds down, hence on absolute values. Negated
// where `sign` is all ones: (v ^ sign) - sign.

FW_LANE Ints factor8(int volume) {
    return fill16(volume << 1);
}

FW_LANE Ints factor16(int volume) {
    return fill16(volume << 9);
}

FW_LANE Ints factor32(int volume) {
    return fill16(volume << 9);
}

FW_LANE Ints scaled8(Ints s, Ints factor) {
    const Ints zero = _mm_setzero_si128();
    const Ints sign = _mm_cmpgt_epi8(zero, s);
    const Ints level = _mm_sub_epi8(flip(s, sign), sign);
    const Ints low = _mm_mulhi_epu16(_mm_unpacklo_epi8(zero, level), factor);
    const Ints high = _mm_mulhi_epu16(_mm_unpackhi_epi8(zero, level), factor);
    return _mm_sub_epi8(flip(_mm_packus_epi16(low, high), sign), sign);
}

FW_LANE Ints scaled16(Ints s, Ints factor) {
    const Ints sign = _mm_srai_epi16(s, 15);
    const Ints level = _mm_sub_epi16(flip(s, sign), sign);
    return _mm_sub_epi16(flip(_mm_mulhi_epu16(level, factor), sign), sign);
}

FW_LANE Ints scaled32(Ints s, Ints factor) {
    const Ints sign = _mm_srai_epi32(s, 31);
    const Ints level = _mm_sub_epi32(flip(s, sign), sign);
    // The halves of `level` times the factor: high * factor + (low * factor >> 16), where the high
    // half of high * factor already stands where it belongs.
    const Ints product = _mm_add_epi32(_mm_mulhi_epu16(level, factor),
                                       _mm_srli_epi32(_mm_mullo_epi16(level, factor), 16));
    return _mm_sub_epi32(flip(product, sign), sign);
}

FW_LANE Ints add8(Ints a, Ints b) {
    return _mm_adds_epi8(a, b);
}

FW_LANE Ints add16(Ints a, Ints b) {
    return _mm_adds_epi16(a, b);
}

FW_LANE Ints add32(Ints a, Ints b) {
    const Ints sum = _mm_add_epi32(a, b);
    // It left the range if its sign is neither that of `a` nor that of `b`.
    const Ints left = _mm_and_si128(flip(sum, a), flip(sum, b));
    const Ints bound = flip(_mm_srai_epi32(a, 31), _mm_set1_epi32(INT32_MAX));
    return select(sum, bound, _mm_srai_epi32(left, 31));
}

FW_LANE Ints min8(Ints a, Ints b) {
    return _mm_min_epu8(a, b);
}

FW_LANE Ints factor_float(int volume) {
    return _mm_castps_si128(_mm_set1_ps(static_cast<float>(volume)));
}

FW_LANE Ints scaled_float(Ints s, Ints factor) {
    const __m128 louder = _mm_mul_ps(_mm_castsi128_ps(s), _mm_castsi128_ps(factor));
    return _mm_castps_si128(_mm_mul_ps(louder, _mm_set1_ps(kVolumeStep)));
}

FW_LANE Ints add_float(Ints a, Ints b) {
    const __m128 sum = _mm_add_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b));
    // Minimum and maximum give their second operand if one is NaN, so a NaN stays one.
    const __m128 clipped =
        _mm_max_ps(_mm_set1_ps(-kLargestFloat), _mm_min_ps(_mm_set1_ps(kLargestFloat), sum));
    const Ints nan = _mm_set1_epi32(static_cast<int>(kQuietNan));
    return select(_mm_castps_si128(clipped), nan, _mm_castps_si128(_mm_cmpunord_ps(sum, sum)));
}

FW_LANE Ints louder_unsigned8(Ints peak, Ints s) {
    return _mm_max_epu8(peak, s);
}

FW_LANE Ints louder_signed8(Ints peak, Ints s) {
    // Of a number and its negative, the absolute value is the lower one of the two as unsigned.
    const Ints negative = _mm_sub_epi8(_mm_setzero_si128(), s);
    return _mm_max_epu8(peak, _mm_min_epu8(s, negative));
}

FW_LANE Ints louder_unsigned16(Ints peak, Ints s) {
    return _mm_add_epi16(_mm_subs_epu16(peak, s), s);
}

FW_LANE Ints louder_signed32(Ints peak, Ints s) {
    // Peaks are kept negative, which holds the absolute value of the lowest number too.
    const Ints sign = _mm_srai_epi32(s, 31);
    const Ints level = _mm_sub_epi32(sign, flip(s, sign));
    return select(peak, level, _mm_cmpgt_epi32(peak, level));
}

FW_LANE Ints louder_float(Ints peak, Ints s) {
    const Ints level = _mm_and_si128(s, _mm_set1_epi32(INT32_MAX));
    // Gives the second operand, the peak, for a NaN.
    return _mm_castps_si128(_mm_max_ps(_mm_castsi128_ps(level), _mm_castsi128_ps(peak)));
}

}  // namespace

}  // namespace ff::lanes

#include "media/sample_kernels.h"

namespace ff::lanes {

const Path* sse2_path() {
    return &kPath;
}

}  // namespace ff::lanes

#else

namespace ff::lanes {

const Path* sse2_path() {
    return nullptr;
}

}  // namespace ff::lanes

#endif
