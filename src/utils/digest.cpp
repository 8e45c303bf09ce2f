#include <framewell/utils/digest.h>
#include <framewell/utils/files.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

namespace ut {

namespace {

constexpr unsigned kBlockSize = 64;

// 2^32 times the absolute sine of 1 to 64 radians, cut: one for each step.
constexpr std::uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

constexpr unsigned rotation(unsigned round, unsigned step) {
    constexpr unsigned rotations[4][4] = {
        {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    return rotations[round][step % 4];
}

// Which word of the block a step takes: each round walks through all 16 with a stride of its own.
constexpr unsigned word_of(unsigned round, unsigned step) {
    constexpr unsigned starts[4] = {0, 1, 5, 0};
    constexpr unsigned strides[4] = {1, 5, 3, 7};
    return (starts[round] + strides[round] * step) % 16;
}

template <unsigned Round>
std::uint32_t mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    switch (Round) {
        case 0:
            return (x & y) | (~x & z);
        case 1:
            return (x & z) | (y & ~z);
        case 2:
            return x ^ y ^ z;
        default:
            return y ^ (x | ~z);
    }
}

// Each step changes one of the four registers, a, d, c, b in turn: here they move one place
// instead.
template <unsigned Round, unsigned Step>
void run_step(std::uint32_t (&v)[4], const std::uint32_t (&words)[16]) {
    constexpr unsigned bits = rotation(Round, Step);
    constexpr unsigned word = word_of(Round, Step);
    const std::uint32_t sum =
        v[0] + mix<Round>(v[1], v[2], v[3]) + words[word] + kSines[Round * 16 + Step];
    const std::uint32_t changed = v[1] + (sum << bits | sum >> (32 - bits));
    v[0] = v[3];
    v[3] = v[2];
    v[2] = v[1];
    v[1] = changed;
}

// All steps in one expression rather than a loop, so that no register has to be moved.
template <unsigned Round, unsigned... Step>
void run_round(std::uint32_t (&v)[4], const std::uint32_t (&words)[16],
               std::integer_sequence<unsigned, Step...> /*steps*/) {
    (run_step<Round, Step>(v, words), ...);
}

// The text of 16 bytes of which only the bits of `mask` count.
char* print_masked(const std::uint8_t* digest, unsigned mask) {
    if (digest == nullptr) {
        return nullptr;
    }
    char text[33] = "";
    for (std::size_t i = 0; i < 16; ++i) {
        (void)std::snprintf(text + 2 * i, 3, "%02x", digest[i] & mask);  // always 2 characters
    }
    return ::strdup(text);
}

// Update() counts in 32 bits.
void update_in_pieces(md5& digest, const std::uint8_t* data, unsigned long len) {
    constexpr unsigned long max_piece = 1UL << 30;
    while (len > 0) {
        const unsigned long piece = std::min(len, max_piece);
        digest.Update(data, static_cast<unsigned>(piece));
        data += piece;
        len -= piece;
    }
}

md5 digest_of(const std::uint8_t* data, unsigned long len) {
    md5 digest;
    update_in_pieces(digest, data, len);
    digest.Finalize();
    return digest;
}

md5 digest_of(const char* s) {
    return digest_of(reinterpret_cast<const std::uint8_t*>(s), std::strlen(s));
}

struct FileCloser {
    void operator()(std::FILE* file) const {
        (void)std::fclose(file);  // it was only read
    }
};

}  // namespace

md5::md5() {
    Init();
}

void md5::Init() {
    m_state[0] = 0x67452301;
    m_state[1] = 0xefcdab89;
    m_state[2] = 0x98badcfe;
    m_state[3] = 0x10325476;
    std::memset(m_count, 0, sizeof m_count);
    std::memset(m_buffer, 0, sizeof m_buffer);
}

void md5::Update(const std::uint8_t* data, unsigned len) {
    if (data == nullptr || len == 0) {
        return;
    }
    unsigned used = m_count[0] / 8 % kBlockSize;
    const std::uint32_t bits = len << 3;
    m_count[0] += bits;
    m_count[1] += (len >> 29) + (m_count[0] < bits ? 1 : 0);
    if (used != 0) {
        const unsigned added = std::min(len, kBlockSize - used);
        std::memcpy(m_buffer + used, data, added);
        data += added;
        len -= added;
        used += added;
        if (used < kBlockSize) {
            return;
        }
        Transform(m_buffer);
    }
    for (; len >= kBlockSize; data += kBlockSize, len -= kBlockSize) {
        Transform(data);
    }
    std::memcpy(m_buffer, data, len);
}

void md5::Finalize() {
    constexpr unsigned length_size = 8;
    constexpr std::uint8_t padding[kBlockSize] = {0x80};
    std::uint8_t length[length_size];
    Encode(length, m_count, length_size);
    // A bit of 1, then zeros up to where the length just fills the block.
    const unsigned used = m_count[0] / 8 % kBlockSize;
    Update(padding, (2 * kBlockSize - length_size - 1 - used) % kBlockSize + 1);
    Update(length, length_size);
    Encode(m_digest, m_state, sizeof m_digest);
    Init();
}

void md5::Transform(const std::uint8_t block[64]) {
    if (block == nullptr) {
        return;
    }
    std::uint32_t words[16];
    Decode(words, block, kBlockSize);
    std::uint32_t v[4] = {m_state[0], m_state[1], m_state[2], m_state[3]};
    constexpr auto steps = std::make_integer_sequence<unsigned, 16>();
    run_round<0>(v, words, steps);
    run_round<1>(v, words, steps);
    run_round<2>(v, words, steps);
    run_round<3>(v, words, steps);
    for (std::size_t i = 0; i < 4; ++i) {
        m_state[i] += v[i];
    }
}

void md5::Encode(std::uint8_t* dst, const std::uint32_t* src, unsigned len) {
    if (dst == nullptr || src == nullptr) {
        return;
    }
    for (std::size_t i = 0; i < len - len % 4; ++i) {
        dst[i] = static_cast<std::uint8_t>(src[i / 4] >> (i % 4 * 8));
    }
}

void md5::Decode(std::uint32_t* dst, const std::uint8_t* src, unsigned len) {
    if (dst == nullptr || src == nullptr) {
        return;
    }
    for (std::size_t i = 0; i < len / 4; ++i) {
        const std::uint8_t* const p = src + 4 * i;
        dst[i] = static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
                 static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
    }
}

char* PrintMD5(const std::uint8_t digest[16]) {
    return print_masked(digest, 0xFF);
}

char* PrintMD5_Vokt(const std::uint8_t digest[16]) {
    // Deliberate: hosts use this text beside the usual one, and tell the two apart by it.
    return print_masked(digest, 252);
}

char* MD5String(const char* s) {
    return s == nullptr ? nullptr : PrintMD5(digest_of(s).Digest());
}

char* MD5String_Vokt(const char* s) {
    return s == nullptr ? nullptr : PrintMD5_Vokt(digest_of(s).Digest());
}

char* MD5BinData(const std::uint8_t* data, unsigned long len) {
    return data == nullptr && len > 0 ? nullptr : PrintMD5(digest_of(data, len).Digest());
}

char* MD5File(const char* path) {
    const std::unique_ptr<std::FILE, FileCloser> file(fs::ut_fopen(path, "rb"));
    if (file == nullptr) {
        return nullptr;
    }
    md5 digest;
    std::uint8_t chunk[10240];
    std::size_t size = 0;
    do {
        size = std::fread(chunk, 1, sizeof chunk, file.get());
        digest.Update(chunk, static_cast<unsigned>(size));
    } while (size > 0);
    if (std::ferror(file.get()) != 0) {
        return nullptr;  // half a file has no digest; a folder opens and cannot be read either
    }
    digest.Finalize();
    return PrintMD5(digest.Digest());
}

char* MD5_32_to_16(char* hex) {
    if (hex == nullptr || *hex == '\0') {
        return hex;
    }
    if (std::strlen(hex) < 24) {
        *hex = '\0';
        return hex;
    }
    std::memmove(hex, hex + 8, 16);
    hex[16] = '\0';
    return hex;
}

}  // namespace ut
