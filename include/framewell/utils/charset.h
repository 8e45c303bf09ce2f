#pragma once

#include <framewell/base/config.h>

#include <string>

/// @file
/// Text between GBK, UTF-8 and wide characters of 32 bits, for media files and tags from systems
/// that speak GBK.
///
/// The conversions are those of the system's locales "zh_CN.utf8" and "zh_CN.gbk". The calling
/// thread uses them during the call; the locale of the process and of other threads stays.
///
/// A conversion stops at a NUL inside the text. It gives all of the text or nothing; when it gives
/// nothing, it says why on standard output, one line each: "Bad Parameter" (the locale is not
/// installed), "Can not Transfer!!!" (the text is not valid in its encoding, or has a character
/// that the other one lacks, or begins with a NUL) or "calloc failed..".
///
/// Thread-safety: all safe.
namespace ut {

/// Returns `s` as wide characters.
/// @param utf8  whether `s` is UTF-8; else it is GBK
/// @param ok    whether it could be converted. An empty `s` gives an empty result and leaves `ok`
///              as it was.
FRAMEWELL_API std::wstring multiByte2WideChar(const std::string& s, bool utf8, bool& ok);

/// Returns `w` as UTF-8, or else as GBK; the rest as for multiByte2WideChar().
FRAMEWELL_API std::string wideChar2MultiByte(const std::wstring& w, bool utf8, bool& ok);

/// Returns the GBK text `s` as UTF-8, or nothing.
FRAMEWELL_API std::string GBKToUTF8(const std::string& s);

/// Returns the UTF-8 text `s` as GBK, or nothing.
FRAMEWELL_API std::string UTF8ToGBK(const std::string& s);

/// wideChar2MultiByte() of a text that ends with a NUL; empty for null and for what cannot be
/// converted.
FRAMEWELL_API std::string Unicode2ACSII(const wchar_t* w, bool utf8);

/// multiByte2WideChar() of a text that ends with a NUL; empty for null and for what cannot be
/// converted.
FRAMEWELL_API std::wstring ASCII2Unicode(const char* s, bool utf8);

}  // namespace ut
