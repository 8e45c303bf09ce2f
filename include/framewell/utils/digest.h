#pragma once

#include <framewell/base/config.h>

#include <cstdint>

/// @file
/// MD5, after RFC 1321, and its texts. It tells files apart; it protects nothing.
///
/// Functions that return a new `char*` allocate it with malloc(): the caller frees it with free().
/// They return null for a null argument and when there is no memory. Nothing is logged.
///
///     char* const id = ut::MD5File("clip.mp4");  // null: it cannot be read
///     std::puts(id != nullptr ? id : "none");
///     std::free(id);
///
/// Thread-safety: safe on different objects and buffers.
namespace ut {

/// A digest that is fed piece by piece.
///
///     ut::md5 digest;
///     digest.Update(head, head_size);
///     digest.Update(body, body_size);
///     digest.Finalize();
///     char* const text = ut::PrintMD5(digest.Digest());
///
/// Thread-safety: one thread at a time.
class FRAMEWELL_API md5 {
public:
    /// Calls Init().
    md5();

    /// Forgets what was fed: a new message begins.
    void Init();

    /// Adds `len` bytes to the message; null adds nothing. The message may have any length.
    void Update(const std::uint8_t* data, unsigned len);

    /// Ends the message: Digest() is its digest from now on, and a new message begins.
    void Finalize();

    /// The 16 bytes of the digest of the message that was ended last, all zero before the first.
    /// They belong to this object and change with the next Finalize().
    const std::uint8_t* Digest() const { return m_digest; }

    /// Mixes one block into the state; for those who do padding and counting themselves.
    void Transform(const std::uint8_t block[64]);

    /// Writes the words of `src` as `len` bytes, lowest byte of a word first. `len` is cut to a
    /// multiple of 4.
    static void Encode(std::uint8_t* dst, const std::uint32_t* src, unsigned len);

    /// The reverse of Encode(): reads `len` bytes into len / 4 words.
    static void Decode(std::uint32_t* dst, const std::uint8_t* src, unsigned len);

private:
    std::uint32_t m_state[4];
    std::uint32_t m_count[2];   // bits of the message so far, lower word first
    std::uint8_t m_buffer[64];  // what does not fill a block yet
    std::uint8_t m_digest[16]{};
};

/// Returns the digest as 32 lower-case hexadecimal digits, in a new text.
FRAMEWELL_API char* PrintMD5(const std::uint8_t digest[16]);

/// Returns the text of the digest with the two low bits of every byte cleared, in a new text: an
/// identifier of its own, which is no MD5 text.
FRAMEWELL_API char* PrintMD5_Vokt(const std::uint8_t digest[16]);

/// Returns PrintMD5() of the digest of `s` without its NUL.
FRAMEWELL_API char* MD5String(const char* s);

/// Returns PrintMD5_Vokt() of the digest of `s` without its NUL.
FRAMEWELL_API char* MD5String_Vokt(const char* s);

/// Returns PrintMD5() of the digest of `len` bytes, which may be more than 4 GiB. Null data is
/// allowed for a length of 0.
FRAMEWELL_API char* MD5BinData(const std::uint8_t* data, unsigned long len);

/// Returns PrintMD5() of the digest of a file's content, or null if it cannot be opened or read.
/// Double quotes at both ends of `path` are ignored.
/// Blocking: reads the whole file.
FRAMEWELL_API char* MD5File(const char* path);

/// Turns a text of 32 digits into its middle 16, in place, and returns it. A text of fewer than 24
/// characters has no such middle and becomes empty.
FRAMEWELL_API char* MD5_32_to_16(char* hex);

}  // namespace ut
