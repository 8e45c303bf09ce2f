#pragma once

#include "tests/robustness/random.h"

#include <string>

namespace fw_test {

/// What hits files on their way: downloads that stop, disks that lose sectors, programs that write
/// the wrong numbers.
enum class DamageKind {
    Cut,        ///< the end is missing, from one byte to nearly all
    HeadBits,   ///< flipped bits in the first or the last 4 KiB, where containers keep their index
    BodyBits,   ///< flipped bits anywhere
    Numbers,    ///< extreme values in place of 1 to 8 bytes of the first or last 4 KiB
    Fields,     ///< extreme values next to the names of four letters that containers are made of
    Zeros,      ///< blocks of zeros
    Exchanged,  ///< blocks that have changed places
    Doubled,    ///< blocks that are there twice
    Lost,       ///< blocks that are missing
    Rubbish,    ///< noise behind the end or in between
    Several,    ///< two or three of these
};

constexpr int kDamageKinds = static_cast<int>(DamageKind::Several) + 1;

/// Returns the name of a kind as reports write it.
const char* name_of(DamageKind kind);

/// Returns a copy of `bytes` that is damaged in this way, at places of `random`'s choice. An empty
/// file gets rubbish, whatever the kind.
std::string damaged_copy(std::string bytes, DamageKind kind, Random* random);

}  // namespace fw_test
