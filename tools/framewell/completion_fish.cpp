#include "completions.h"

namespace tool {

namespace {

constexpr const char* kHead =
    R"(# Completes framewell's command line in fish. Made by `framewell --completion fish`.

# Whether the command line has this command; an empty one: none yet.
function __framewell_at
    set -l words (commandline -opc)
    set -e words[1]
    set -l found ''
    for word in $words
        if not string match -q -- '-*' $word
            set found $word
            break
        end
    end
    test "$found" = "$argv[1]"
end

# Files only where files are to be given.
complete -c framewell -f
)";

std::string quoted(const std::string& text) {
    return "'" + with_replaced(with_replaced(text, '\\', "\\\\"), '\'', "\\'") + "'";
}

std::string line_start(const VerbOutline& verb, bool is_tool) {
    return "complete -c framewell -n " +
           quoted("__framewell_at " + (is_tool ? std::string("''") : verb.name));
}

std::string option_line(const OptionOutline& option) {
    std::string line;
    for (const std::string& name : option.names) {
        const bool is_long = name.rfind("--", 0) == 0;
        line += is_long ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    if (!option.choices.empty()) {
        line += " -x -a " + quoted(joined(option.choices, " "));
    } else if (option.is_path) {
        line += " -r -F";
    } else if (!option.value.empty()) {
        line += " -x";
    }
    return line + " -d " + quoted(option.text) + "\n";
}

}  // namespace

std::string fish_completion(const Outline& outline) {
    std::string script = kHead;
    const std::string tool_start = line_start(outline.tool, true);
    for (const VerbOutline& verb : outline.verbs) {
        script += tool_start + " -a " + verb.name + " -d " + quoted(verb.text) + "\n";
    }
    for (const OptionOutline& option : outline.tool.options) {
        script += tool_start + option_line(option);
    }
    for (const VerbOutline& verb : outline.verbs) {
        script += "\n";
        const std::string start = line_start(verb, false);
        if (!verb.arguments.empty() && verb.arguments.front().is_path) {
            script += start + " -F\n";
        }
        for (const OptionOutline& option : verb.options) {
            script += start + option_line(option);
        }
    }
    return script;
}

}  // namespace tool
