#include "outline.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <utility>

namespace tool {

namespace {

// The parser shows a set of values as "NAME:{a,b,c}".
void split_type(const std::string& type, OptionOutline& option) {
    const std::size_t colon = type.find(':');
    option.value = type.substr(0, colon);
    const std::size_t open = type.find('{', colon == std::string::npos ? type.size() : colon);
    const std::size_t close = type.find('}', open == std::string::npos ? type.size() : open);
    if (close == std::string::npos) {
        return;
    }
    std::size_t begin = open + 1;
    while (begin <= close) {
        const std::size_t end = std::min(type.find(',', begin), close);
        option.choices.push_back(type.substr(begin, end - begin));
        begin = end + 1;
    }
}

std::vector<std::string> names_of(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

OptionOutline outline_of(const CLI::Option& option) {
    OptionOutline outline;
    outline.names = names_of(option);
    outline.text = option.get_description();
    outline.required = option.get_required();
    const int most = option.get_items_expected_max();
    outline.repeats = most > 1;
    if (most > 0) {  // none is a flag's
        split_type(option.get_type_name(), outline);
    }
    if (option.get_positional()) {
        outline.value = option.get_name(true);
    }
    outline.is_path = outline.value == "FILE" || outline.value == "INPUT" || outline.value == "OUT";
    for (const CLI::Option* const other : option.get_excludes()) {
        for (std::string& name : names_of(*other)) {
            outline.excludes.push_back(std::move(name));
        }
    }
    // The parser keeps them in a set of addresses, which has another order in another run.
    std::sort(outline.excludes.begin(), outline.excludes.end());
    return outline;
}

VerbOutline verb_outline_of(const CLI::App& app) {
    VerbOutline outline;
    outline.name = app.get_name();
    outline.text = app.get_description();
    for (const CLI::Option* const option : app.get_options()) {
        if (option->get_positional()) {
            outline.arguments.push_back(outline_of(*option));
        } else if (!option->get_group().empty()) {
            outline.options.push_back(outline_of(*option));
        }
    }
    return outline;
}

}  // namespace

Outline outline_of(const CLI::App& app) {
    Outline outline;
    outline.tool = verb_outline_of(app);
    for (const CLI::App* const verb : app.get_subcommands([](const CLI::App*) { return true; })) {
        outline.verbs.push_back(verb_outline_of(*verb));
    }
    return outline;
}

std::string joined(const std::vector<std::string>& texts, const std::string& separator) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : separator) + text;
    }
    return all;
}

std::string with_replaced(const std::string& text, char character, const std::string& replacement) {
    std::string result;
    for (const char c : text) {
        if (c == character) {
            result += replacement;
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace tool
