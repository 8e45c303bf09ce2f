#pragma once

#include <framewell/base/config.h>

#include <sys/stat.h>

#include <cstdio>
#include <string>

/// @file
/// Paths and files. Not part of framewell.h, because hosts may have the name `fs` in use as an
/// alias of std::filesystem.
///
/// Null in place of a path or a mode fails like a path that does not exist. Failures are reported
/// by the result and by errno, and are not logged.
///
/// Thread-safety: all safe, if no thread changes the environment while tmp_dir() reads it.
namespace fs {

/// Returns `path` with every run of slashes and backslashes turned into one slash. Empty for an
/// empty path, and when memory runs out.
FRAMEWELL_API std::string to_native_filepath(const std::string& path);

/// Opens a file as fopen() does, after taking double quotes off both ends of `path`, which paths
/// that were pasted or dropped bring along.
/// @return  null: failed. The caller closes the file with fclose().
FRAMEWELL_API std::FILE* ut_fopen(const char* path, const char* mode);

/// Fills `st` by stat() and returns whether that succeeded.
FRAMEWELL_API bool ut_file_stat(const char* path, struct stat& st);

/// Renames a file or folder as rename() does: 0, or -1 with errno.
FRAMEWELL_API int ut_rename(const char* from, const char* to);

/// Makes a folder with the permissions `mode`, less the process's umask; its parent must exist.
/// Returns whether the folder is there now, also when it was before.
FRAMEWELL_API bool make_dir(const char* path, int mode);

/// Returns whether `path` is a folder that can be opened.
FRAMEWELL_API bool is_dir_exist(const char* path);

/// Returns the folder for temporary files: to_native_filepath() of the environment variable TMPDIR,
/// or "/tmp" when that is not set or empty.
FRAMEWELL_API std::string tmp_dir();

}  // namespace fs
