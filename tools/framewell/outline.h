#pragma once

#include "parser.h"

#include <string>
#include <vector>

/// @file
/// What the command line understands, read out of the parser. The man page and the completions of
/// shells are made of it, so they cannot tell anything else than the tool does.

namespace tool {

/// An option, or an argument that stands by itself.
struct OptionOutline {
    std::vector<std::string> names;     ///< with their dashes; none for an argument
    std::string value;                  ///< the name of what is to be given; empty for a flag
    std::string text;                   ///< what it does, as `--help` says it
    std::vector<std::string> choices;   ///< all that can be given; none: anything
    std::vector<std::string> excludes;  ///< names of the options that it cannot stand beside
    bool required = false;
    bool repeats = false;
    bool is_path = false;  ///< a file is to be given: a value named FILE, INPUT or OUT
};

/// The tool itself, or one of its verbs.
struct VerbOutline {
    std::string name;
    std::string text;
    std::vector<OptionOutline> options;
    std::vector<OptionOutline> arguments;
};

struct Outline {
    VerbOutline tool;
    std::vector<VerbOutline> verbs;
};

/// Hidden options (those of an empty group) are left out.
Outline outline_of(const CLI::App& app);

/// The texts with `separator` between them.
std::string joined(const std::vector<std::string>& texts, const std::string& separator);

/// `text` with `replacement` in place of every `character`.
std::string with_replaced(const std::string& text, char character, const std::string& replacement);

}  // namespace tool
