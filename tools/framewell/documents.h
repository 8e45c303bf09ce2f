#pragma once

#include "parser.h"

#include <string>

namespace tool {

/// What the hidden options ask for; they are there for whoever packs the tool.
struct DocumentOptions {
    std::string completion;  ///< the shell; empty: none
    bool man = false;
};

/// Adds `--completion SHELL` and `--man`, which `--help` does not list.
void add_documents(CLI::App& app, DocumentOptions& options);

/// Writes what was asked for to standard output; false if nothing was.
bool write_document(const CLI::App& app, const DocumentOptions& options);

}  // namespace tool
