#include "documents.h"

#include "completions.h"
#include "man_page.h"
#include "outline.h"
#include "report.h"

#include <framewell/base/config.h>

#include <CLI/CLI.hpp>

#include <map>

namespace tool {

namespace {

using Writer = std::string (*)(const Outline&);

const std::map<std::string, Writer>& shells() {
    static const std::map<std::string, Writer> s_shells{
        {"bash", bash_completion}, {"fish", fish_completion}, {"zsh", zsh_completion}};
    return s_shells;
}

}  // namespace

void add_documents(CLI::App& app, DocumentOptions& options) {
    app.add_option("--completion", options.completion,
                   "print a script that completes in this shell")
        ->check(CLI::IsMember(&shells()))
        ->type_name("SHELL")
        ->group("");
    app.add_flag("--man", options.man, "print the manual page")->group("");
}

bool write_document(const CLI::App& app, const DocumentOptions& options) {
    if (options.man) {
        write_out(man_page(outline_of(app), ff::framewell_version(), FRAMEWELL_RELEASE_DATE));
    } else if (!options.completion.empty()) {
        write_out(shells().at(options.completion)(outline_of(app)));
    } else {
        return false;
    }
    return true;
}

}  // namespace tool
