// Sixteen bytes at a time with NEON, which every 64-bit Arm processor has.

#include "media/sample_lanes.h"

#if defined(__aarch64__) && defined(__ARM_NEON) && !defined(__AARCH64EB__)

#include <arm_neon.h>

#define FW_LANE inline

namespace ff::lanes {

namespace {

using Ints = uint8x16_t;

constexpr const char* kPathName = "NEON";
constexpr std::size_t kVectorBytes = sizeof(Ints);

FW_LANE Ints load(const std::uint8_t* p) {
    return vld1q_u8(p);
}

FW_LANE void store(std::uint8_t* p, Ints v) {
    vst1q_u8(p, v);
}

FW_LANE Ints fill8(int value) {
    return vdupq_n_u8(static_cast<std::uint8_t>(value));
}

FW_LANE Ints fill16(int value) {
    return vreinterpretq_u8_u16(vdupq_n_u16(static_cast<std::uint16_t>(value)));
}

FW_LANE Ints flip(Ints a, Ints b) {
    return veorq_u8(a, b);
}

FW_LANE Ints swap16(Ints v) {
    return vrev16q_u8(v);
}

FW_LANE Ints swap32(Ints v) {
    return vrev32q_u8(v);
}

FW_LANE Ints factor8(int volume) {
    return fill8(volume);
}

FW_LANE Ints factor16(int volume) {
    return fill16(volume);
}

FW_LANE Ints factor32(int volume) {
    return vreinterpretq_u8_u32(vdupq_n_u32(static_cast<std::uint32_t>(volume)));
}

// Shifting the wide product rounds down, hence it is made of absolute values. Negated where `sign`
// is all ones: (v ^ sign) - sign.

FW_LANE Ints scaled8(Ints s, Ints factor) {
    const int8x16_t sample = vreinterpretq_s8_u8(s);
    const uint8x16_t sign = vreinterpretq_u8_s8(vshrq_n_s8(sample, 7));
    const uint8x16_t level = vreinterpretq_u8_s8(vabsq_s8(sample));
    const uint16x8_t low = vmull_u8(vget_low_u8(level), vget_low_u8(factor));
    const uint16x8_t high = vmull_u8(vget_high_u8(level), vget_high_u8(factor));
    const uint8x16_t scaled = vcombine_u8(vshrn_n_u16(low, 7), vshrn_n_u16(high, 7));
    return vsubq_u8(veorq_u8(scaled, sign), sign);
}

FW_LANE Ints scaled16(Ints s, Ints factor) {
    const int16x8_t sample = vreinterpretq_s16_u8(s);
    const uint16x8_t by = vreinterpretq_u16_u8(factor);
    const uint16x8_t sign = vreinterpretq_u16_s16(vshrq_n_s16(sample, 15));
    const uint16x8_t level = vreinterpretq_u16_s16(vabsq_s16(sample));
    const uint32x4_t low = vmull_u16(vget_low_u16(level), vget_low_u16(by));
    const uint32x4_t high = vmull_u16(vget_high_u16(level), vget_high_u16(by));
    const uint16x8_t scaled = vcombine_u16(vshrn_n_u32(low, 7), vshrn_n_u32(high, 7));
    return vreinterpretq_u8_u16(vsubq_u16(veorq_u16(scaled, sign), sign));
}

FW_LANE Ints scaled32(Ints s, Ints factor) {
    const int32x4_t sample = vreinterpretq_s32_u8(s);
    const uint32x4_t by = vreinterpretq_u32_u8(factor);
    const uint32x4_t sign = vreinterpretq_u32_s32(vshrq_n_s32(sample, 31));
    const uint32x4_t level = vreinterpretq_u32_s32(vabsq_s32(sample));
    const uint64x2_t low = vmull_u32(vget_low_u32(level), vget_low_u32(by));
    const uint64x2_t high = vmull_u32(vget_high_u32(level), vget_high_u32(by));
    const uint32x4_t scaled = vcombine_u32(vshrn_n_u64(low, 7), vshrn_n_u64(high, 7));
    return vreinterpretq_u8_u32(vsubq_u32(veorq_u32(scaled, sign), sign));
}

FW_LANE Ints add8(Ints a, Ints b) {
    return vreinterpretq_u8_s8(vqaddq_s8(vreinterpretq_s8_u8(a), vreinterpretq_s8_u8(b)));
}

FW_LANE Ints add16(Ints a, Ints b) {
    return vreinterpretq_u8_s16(vqaddq_s16(vreinterpretq_s16_u8(a), vreinterpretq_s16_u8(b)));
}

FW_LANE Ints add32(Ints a, Ints b) {
    return vreinterpretq_u8_s32(vqaddq_s32(vreinterpretq_s32_u8(a), vreinterpretq_s32_u8(b)));
}

FW_LANE Ints min8(Ints a, Ints b) {
    return vminq_u8(a, b);
}

FW_LANE Ints factor_float(int volume) {
    return vreinterpretq_u8_f32(vdupq_n_f32(static_cast<float>(volume)));
}

FW_LANE Ints scaled_float(Ints s, Ints factor) {
    const float32x4_t louder = vmulq_f32(vreinterpretq_f32_u8(s), vreinterpretq_f32_u8(factor));
    return vreinterpretq_u8_f32(vmulq_f32(louder, vdupq_n_f32(kVolumeStep)));
}

FW_LANE Ints add_float(Ints a, Ints b) {
    const float32x4_t sum = vaddq_f32(vreinterpretq_f32_u8(a), vreinterpretq_f32_u8(b));
    const float32x4_t clipped =
        vmaxq_f32(vminq_f32(sum, vdupq_n_f32(kLargestFloat)), vdupq_n_f32(-kLargestFloat));
    const float32x4_t nan = vreinterpretq_f32_u32(vdupq_n_u32(kQuietNan));
    return vreinterpretq_u8_f32(vbslq_f32(vceqq_f32(sum, sum), clipped, nan));
}

FW_LANE Ints louder_unsigned8(Ints peak, Ints s) {
    return vmaxq_u8(peak, s);
}

FW_LANE Ints louder_signed8(Ints peak, Ints s) {
    return vmaxq_u8(peak, vreinterpretq_u8_s8(vabsq_s8(vreinterpretq_s8_u8(s))));
}

FW_LANE Ints louder_unsigned16(Ints peak, Ints s) {
    return vreinterpretq_u8_u16(vmaxq_u16(vreinterpretq_u16_u8(peak), vreinterpretq_u16_u8(s)));
}

FW_LANE Ints louder_signed32(Ints peak, Ints s) {
    const uint32x4_t level = vreinterpretq_u32_s32(vabsq_s32(vreinterpretq_s32_u8(s)));
    return vreinterpretq_u8_u32(vmaxq_u32(vreinterpretq_u32_u8(peak), level));
}

FW_LANE Ints louder_float(Ints peak, Ints s) {
    // Without their sign, the bits of floats are ordered as the floats are, and NaNs lie above
    // infinity.
    const uint32x4_t level = vandq_u32(vreinterpretq_u32_u8(s), vdupq_n_u32(0x7FFFFFFF));
    const uint32x4_t is_number = vcleq_u32(level, vdupq_n_u32(0x7F800000));
    return vreinterpretq_u8_u32(vmaxq_u32(vreinterpretq_u32_u8(peak), vandq_u32(level, is_number)));
}

}  // namespace

}  // namespace ff::lanes

#include "media/sample_kernels.h"

namespace ff::lanes {

const Path* neon_path() {
    return &kPath;
}

}  // namespace ff::lanes

#else

namespace ff::lanes {

const Path* neon_path() {
    return nullptr;
}

}  // namespace ff::lanes

#endif
