// Thirty-two bytes at a time with AVX2. The functions name their instructions themselves, so the
// file is compiled with the flags of all others, and the processor is asked before any of them
// runs.

#include "media/sample_lanes.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

#include <immintrin.h>

#define FW_LANE __attribute__((target("avx2"))) inline

namespace ff::lanes {

namespace {

using Ints = __m256i;

constexpr const char* kPathName = "AVX2";
constexpr std::size_t kVectorBytes = sizeof(Ints);

FW_LANE Ints load(const std::uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const Ints*>(p));
}

FW_LANE void store(std::uint8_t* p, Ints v) {
    _mm256_storeu_si256(reinterpret_cast<Ints*>(p), v);
}

FW_LANE Ints fill8(int value) {
    return _mm256_set1_epi8(static_cast<char>(value));
}

FW_LANE Ints fill16(int value) {
    return _mm256_set1_epi16(static_cast<std::int16_t>(value));
}

FW_LANE Ints flip(Ints a, Ints b) {
    return _mm256_xor_si256(a, b);
}

// Both shuffles work within each half of the vector.

FW_LANE Ints swap16(Ints v) {
    return _mm256_shuffle_epi8(
        v, _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14,  //
                            1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
}

FW_LANE Ints swap32(Ints v) {
    return _mm256_shuffle_epi8(
        v, _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12,  //
                            3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
}

// A product's high half is what the multiplication leaves out of 32 bits, so the volume is shifted
// to where dividing by 65536 is dividing by 128. It rounds down, hence on absolute values, which
// then take the sign of the sample.

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
    const Ints zero = _mm256_setzero_si256();
    const Ints level = _mm256_abs_epi8(s);
    const Ints low = _mm256_mulhi_epu16(_mm256_unpacklo_epi8(zero, level), factor);
    const Ints high = _mm256_mulhi_epu16(_mm256_unpackhi_epi8(zero, level), factor);
    return _mm256_sign_epi8(_mm256_packus_epi16(low, high), s);
}

FW_LANE Ints scaled16(Ints s, Ints factor) {
    return _mm256_sign_epi16(_mm256_mulhi_epu16(_mm256_abs_epi16(s), factor), s);
}

FW_LANE Ints scaled32(Ints s, Ints factor) {
    const Ints level = _mm256_abs_epi32(s);
    // The halves of `level` times the factor: high * factor + (low * factor >> 16), where the high
    // half of high * factor already stands where it belongs.
    const Ints product = _mm256_add_epi32(_mm256_mulhi_epu16(level, factor),
                                          _mm256_srli_epi32(_mm256_mullo_epi16(level, factor), 16));
    return _mm256_sign_epi32(product, s);
}

FW_LANE Ints add8(Ints a, Ints b) {
    return _mm256_adds_epi8(a, b);
}

FW_LANE Ints add16(Ints a, Ints b) {
    return _mm256_adds_epi16(a, b);
}

FW_LANE Ints add32(Ints a, Ints b) {
    const Ints sum = _mm256_add_epi32(a, b);
    // It left the range if its sign is neither that of `a` nor that of `b`.
    const Ints left = _mm256_and_si256(flip(sum, a), flip(sum, b));
    const Ints bound = flip(_mm256_srai_epi32(a, 31), _mm256_set1_epi32(INT32_MAX));
    return _mm256_castps_si256(_mm256_blendv_ps(
        _mm256_castsi256_ps(sum), _mm256_castsi256_ps(bound), _mm256_castsi256_ps(left)));
}

FW_LANE Ints min8(Ints a, Ints b) {
    return _mm256_min_epu8(a, b);
}

FW_LANE Ints factor_float(int volume) {
    return _mm256_castps_si256(_mm256_set1_ps(static_cast<float>(volume)));
}

FW_LANE Ints scaled_float(Ints s, Ints factor) {
    const __m256 louder = _mm256_mul_ps(_mm256_castsi256_ps(s), _mm256_castsi256_ps(factor));
    return _mm256_castps_si256(_mm256_mul_ps(louder, _mm256_set1_ps(kVolumeStep)));
}

FW_LANE Ints add_float(Ints a, Ints b) {
    const __m256 sum = _mm256_add_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b));
    // Minimum and maximum give their second operand if one is NaN, so a NaN stays one.
    const __m256 clipped = _mm256_max_ps(_mm256_set1_ps(-kLargestFloat),
                                         _mm256_min_ps(_mm256_set1_ps(kLargestFloat), sum));
    const Ints nan = _mm256_set1_epi32(static_cast<int>(kQuietNan));
    return _mm256_castps_si256(
        _mm256_blendv_ps(clipped, _mm256_castsi256_ps(nan), _mm256_cmp_ps(sum, sum, _CMP_UNORD_Q)));
}

FW_LANE Ints louder_unsigned8(Ints peak, Ints s) {
    return _mm256_max_epu8(peak, s);
}

FW_LANE Ints louder_signed8(Ints peak, Ints s) {
    return _mm256_max_epu8(peak, _mm256_abs_epi8(s));
}

FW_LANE Ints louder_unsigned16(Ints peak, Ints s) {
    return _mm256_max_epu16(peak, s);
}

FW_LANE Ints louder_signed32(Ints peak, Ints s) {
    return _mm256_max_epu32(peak, _mm256_abs_epi32(s));
}

FW_LANE Ints louder_float(Ints peak, Ints s) {
    const Ints level = _mm256_and_si256(s, _mm256_set1_epi32(INT32_MAX));
    // Gives the second operand, the peak, for a NaN.
    return _mm256_castps_si256(
        _mm256_max_ps(_mm256_castsi256_ps(level), _mm256_castsi256_ps(peak)));
}

}  // namespace

}  // namespace ff::lanes

#include "media/sample_kernels.h"

namespace ff::lanes {

const Path* avx2_path() {
    static const bool s_has_avx2 = __builtin_cpu_supports("avx2") != 0;
    return s_has_avx2 ? &kPath : nullptr;
}

}  // namespace ff::lanes

#else

namespace ff::lanes {

const Path* avx2_path() {
    return nullptr;
}

}  // namespace ff::lanes

#endif
