#include "tests/robustness/damage_kinds.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>

namespace fw_test {

namespace {

constexpr std::size_t kHead = 4096;
constexpr std::size_t kMaxBlock = 65536;

/// A stretch of a file.
struct Block {
    std::size_t at;
    std::size_t size;
};

Block any_block(std::size_t file_size, Random* random) {
    const std::size_t size = random->by_doublings(std::min(file_size, kMaxBlock));
    return {random->below(file_size - size + 1), size};
}

/// A place in the first 4 KiB, or, once in four, in the last ones.
std::size_t place_in_head(std::size_t file_size, Random* random) {
    const std::size_t reach = std::min(file_size, kHead);
    const std::size_t at = random->below(reach);
    return random->once_in(4) ? file_size - 1 - at : at;
}

void flip_bit(std::string* bytes, std::size_t at, Random* random) {
    (*bytes)[at] = static_cast<char>((*bytes)[at] ^ static_cast<char>(1U << random->below(8)));
}

/// Overwrites 1, 2, 4 or 8 bytes with a number that programs stumble over: none, one, all, the
/// largest and smallest with a sign, or one that is nearly right.
void write_number(std::string* bytes, std::size_t at, Random* random) {
    const std::size_t size =
        std::min<std::size_t>(std::size_t{1} << random->below(4), bytes->size() - at);
    const auto digit = [&](std::size_t i) -> char& { return (*bytes)[at + i]; };
    switch (random->below(7)) {
        case 0:
            std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(at), size, '\0');
            break;
        case 1:
            std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(at), size, '\xff');
            break;
        case 2:  // the largest, highest byte first
            std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(at), size, '\xff');
            digit(0) = '\x7f';
            break;
        case 3:  // the smallest, highest byte first
            std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(at), size, '\0');
            digit(0) = '\x80';
            break;
        case 4:  // the largest, lowest byte first
            std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(at), size, '\xff');
            digit(size - 1) = '\x7f';
            break;
        case 5:  // one, either way round
            std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(at), size, '\0');
            digit(random->once_in(2) ? 0 : size - 1) = '\x01';
            break;
        default:  // a little more or less
            digit(random->below(size)) =
                static_cast<char>(digit(0) + static_cast<char>(random->between(-4, 4)));
            break;
    }
}

bool is_name(const std::string& bytes, std::size_t at) {
    const auto is_letter = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == ' ' || c == '_';
    };
    return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4, is_letter);
}

/// A place close to four letters, which are more often a name the nearer they lie to an end.
std::size_t place_near_name(const std::string& bytes, Random* random) {
    constexpr std::size_t kTries = 2000;
    for (std::size_t i = 0; i < kTries && bytes.size() > 4; ++i) {
        const std::size_t at = place_in_head(bytes.size() - 4, random);
        if (is_name(bytes, at)) {
            const std::int64_t near = static_cast<std::int64_t>(at) + random->between(-4, 20);
            return static_cast<std::size_t>(
                std::clamp<std::int64_t>(near, 0, static_cast<std::int64_t>(bytes.size()) - 1));
        }
    }
    return random->below(bytes.size());
}

std::string noise(std::size_t size, Random* random) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random->bits());
    }
    return bytes;
}

void cut(std::string* bytes, Random* random) {
    switch (random->below(3)) {
        case 0:
            bytes->resize(random->below(bytes->size()));
            break;
        case 1:  // within the head
            bytes->resize(random->below(std::min(bytes->size(), kHead)));
            break;
        default:  // a little at the end
            bytes->resize(bytes->size() - random->by_doublings(bytes->size()));
            break;
    }
}

void exchange_blocks(std::string* bytes, Random* random) {
    const Block block = any_block(bytes->size(), random);
    const std::size_t other = random->below(bytes->size() - block.size + 1);
    const std::string first = bytes->substr(block.at, block.size);
    const std::string second = bytes->substr(other, block.size);
    bytes->replace(block.at, block.size, second);
    bytes->replace(other, block.size, first);
}

void damage_once(std::string* bytes, DamageKind kind, Random* random) {
    const std::size_t size = bytes->size();
    switch (kind) {
        case DamageKind::Cut:
            cut(bytes, random);
            return;
        case DamageKind::HeadBits:
            flip_bit(bytes, place_in_head(size, random), random);
            return;
        case DamageKind::BodyBits:
            flip_bit(bytes, random->below(size), random);
            return;
        case DamageKind::Numbers:
            write_number(bytes, place_in_head(size, random), random);
            return;
        case DamageKind::Fields:
            write_number(bytes, place_near_name(*bytes, random), random);
            return;
        case DamageKind::Zeros: {
            const Block block = any_block(size, random);
            bytes->replace(block.at, block.size, block.size, '\0');
            return;
        }
        case DamageKind::Exchanged:
            exchange_blocks(bytes, random);
            return;
        case DamageKind::Doubled: {
            const Block block = any_block(size, random);
            bytes->insert(random->below(size + 1), bytes->substr(block.at, block.size));
            return;
        }
        case DamageKind::Lost: {
            const Block block = any_block(size, random);
            bytes->erase(block.at, block.size);
            return;
        }
        case DamageKind::Rubbish:
        case DamageKind::Several:
            bytes->insert(random->once_in(2) ? size : random->below(size + 1),
                          noise(random->by_doublings(kHead), random));
            return;
    }
}

/// How often one copy is hit in this way.
std::size_t hits_of(DamageKind kind, Random* random) {
    switch (kind) {
        case DamageKind::Cut:
            return 1;
        case DamageKind::BodyBits:
            return random->by_doublings(2000);
        case DamageKind::HeadBits:
            return random->by_doublings(64);
        default:
            return random->by_doublings(8);
    }
}

void damage_in_one_way(std::string* bytes, DamageKind kind, Random* random) {
    const std::size_t hits = hits_of(kind, random);
    for (std::size_t i = 0; i < hits; ++i) {
        damage_once(bytes, bytes->empty() ? DamageKind::Rubbish : kind, random);
    }
}

}  // namespace

const char* name_of(DamageKind kind) {
    static constexpr const char* kNames[kDamageKinds] = {
        "cut",    "bits of the head", "bits of the body", "numbers", "fields",
        "zeros",  "exchanged",        "doubled",          "lost",    "rubbish",
        "several"};
    return kNames[static_cast<int>(kind)];
}

std::string damaged_copy(std::string bytes, DamageKind kind, Random* random) {
    if (kind != DamageKind::Several) {
        damage_in_one_way(&bytes, kind, random);
        return bytes;
    }
    const std::size_t ways = 2 + random->below(2);
    for (std::size_t i = 0; i < ways; ++i) {
        const auto way = static_cast<DamageKind>(random->below(kDamageKinds - 1));
        damage_in_one_way(&bytes, way, random);
    }
    return bytes;
}

}  // namespace fw_test
