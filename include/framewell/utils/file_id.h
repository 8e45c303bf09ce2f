#pragma once

#include <framewell/base/config.h>

#include <string>

/// @file
/// A key for the state of a file. Not part of framewell.h, because hosts may have the name `fs` in
/// use as an alias of std::filesystem.

namespace fs {

/// Returns 32 hexadecimal digits that change when the file is resized or touched: the MD5 text of
/// its path (see to_native_filepath()), its size in bytes and the second of its last change. The
/// content is not read. A path that leads to no file has a key too.
///
/// Size and time count modulo 2^32, so a change by an exact multiple of 4 GiB alone goes unseen. A
/// path of about 500 bytes or more fills the digested text, which then lacks size and time.
///
/// @return  empty for a null path and when memory runs out. Nothing is logged.
/// Thread-safety: safe.
FRAMEWELL_API std::string file_unique_id(const char* path);

}  // namespace fs
