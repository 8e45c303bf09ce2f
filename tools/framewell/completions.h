#pragma once

#include "outline.h"

#include <string>

/// @file
/// Scripts that complete the tool's command line in a shell: verbs, options, the values of those
/// that have a set of them, and files where files are to be given. They hold all of that
/// themselves and never run the tool.

namespace tool {

/// For bash 4 and newer; needs no other script to be loaded.
std::string bash_completion(const Outline& outline);

/// For zsh: as a file in a folder of `fpath` or sourced.
std::string zsh_completion(const Outline& outline);

/// For fish 3 and newer.
std::string fish_completion(const Outline& outline);

}  // namespace tool
