#include "completions.h"

namespace tool {

namespace {

constexpr const char* kHead = R"(#compdef framewell
# Completes framewell's command line in zsh. Made by `framewell --completion zsh`.

_framewell() {
    local curcontext=$curcontext state state_descr line
    typeset -A opt_args
)";

constexpr const char* kTail = R"(            esac
            ;;
    esac
}

# Loaded by name it is called at once; sourced, it is registered.
if [ "$funcstack[1]" = _framewell ]; then
    _framewell "$@"
else
    compdef _framewell framewell
fi
)";

std::string quoted(const std::string& text) {
    return "'" + with_replaced(text, '\'', "'\\''") + "'";
}

// Within the brackets and between the colons of a specification.
std::string escaped(std::string text) {
    text = with_replaced(text, '\\', "\\\\");
    for (const char c : {'[', ']', ':'}) {
        text = with_replaced(text, c, std::string("\\") + c);
    }
    return text;
}

std::string value_action(const OptionOutline& option) {
    if (!option.choices.empty()) {
        return ":" + option.value + ":(" + joined(option.choices, " ") + ")";
    }
    return ":" + option.value + ":" + (option.is_path ? "_files" : " ");
}

// One for each name of the option.
std::vector<std::string> option_specs(const OptionOutline& option) {
    std::vector<std::string> specs;
    std::vector<std::string> shut_out = option.excludes;
    if (!option.repeats) {
        shut_out.insert(shut_out.begin(), option.names.begin(), option.names.end());
    }
    for (const std::string& name : option.names) {
        std::string spec = shut_out.empty() ? "" : "(" + joined(shut_out, " ") + ")";
        spec += (option.repeats ? "*" : "") + name;
        if (!option.value.empty()) {
            // The value is the next word, or follows at once: "--name=value", "-nvalue".
            spec += name.rfind("--", 0) == 0 ? "=" : "+";
        }
        spec += "[" + escaped(option.text) + "]";
        specs.push_back(quoted(option.value.empty() ? spec : spec + value_action(option)));
    }
    return specs;
}

std::string arguments_call(const VerbOutline& verb, const std::string& indent,
                           const std::vector<std::string>& more) {
    std::vector<std::string> specs;
    for (const OptionOutline& option : verb.options) {
        for (std::string& spec : option_specs(option)) {
            specs.push_back(std::move(spec));
        }
    }
    for (const OptionOutline& argument : verb.arguments) {
        specs.push_back(quoted((argument.repeats ? "*" : "1") + value_action(argument)));
    }
    specs.insert(specs.end(), more.begin(), more.end());
    const std::string line_end = " \\\n" + indent + "    ";
    return indent + "_arguments -C" + line_end + joined(specs, line_end);
}

}  // namespace

std::string zsh_completion(const Outline& outline) {
    std::string script = kHead;
    script +=
        arguments_call(outline.tool, "    ", {"'1:command:->command'", "'*::argument:->argument'"});
    script += " && return\n";
    script += "    case $state in\n        command)\n            local -a verbs=(\n";
    for (const VerbOutline& verb : outline.verbs) {
        script += "                " + quoted(verb.name + ":" + verb.text) + "\n";
    }
    script += "            )\n            _describe -t commands command verbs\n            ;;\n";
    script += "        argument)\n            case $words[1] in\n";
    for (const VerbOutline& verb : outline.verbs) {
        const std::string indent(20, ' ');
        script += "                " + verb.name + ")\n";
        script += arguments_call(verb, indent, {}) + "\n" + indent + ";;\n";
    }
    return script + kTail;
}

}  // namespace tool
