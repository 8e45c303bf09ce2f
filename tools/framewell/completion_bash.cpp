#include "completions.h"

namespace tool {

namespace {

constexpr const char* kHead =
    R"(# Completes framewell's command line in bash. Made by `framewell --completion bash`.

_framewell_files() {
    # Quotes and tildes are best known to bash itself, which is there while it completes a line.
    compopt -o default 2>/dev/null || mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_framewell() {
    local word=${COMP_WORDS[COMP_CWORD]} before="" verb="" words="" i
    [ "$COMP_CWORD" -lt 1 ] || before=${COMP_WORDS[COMP_CWORD - 1]}
    # "--format=rg" is three words.
    if [ "$word" = "=" ]; then
        word=""
    elif [ "$before" = "=" ]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            verb=${COMP_WORDS[i]}
            break
        fi
    done
    COMPREPLY=()
    case $verb:$before in
)";

constexpr const char* kTail = R"(    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _framewell framewell
)";

// "frame:--format)", and what follows there.
std::string value_cases(const VerbOutline& verb) {
    std::string cases;
    for (const OptionOutline& option : verb.options) {
        if (option.value.empty()) {
            continue;
        }
        std::vector<std::string> patterns;
        for (const std::string& name : option.names) {
            patterns.push_back(verb.name + ":" + name);
        }
        cases += "        " + joined(patterns, " | ") + ") ";
        if (!option.choices.empty()) {
            cases += "words=\"" + joined(option.choices, " ") + "\" ;;\n";
        } else if (option.is_path) {
            cases += "_framewell_files \"$word\"; return ;;\n";
        } else {
            cases += "return ;;\n";  // nobody can guess it
        }
    }
    return cases;
}

// What can stand where no option waits for its value.
std::string word_case(const std::string& pattern, const VerbOutline& verb,
                      const std::vector<std::string>& verb_names) {
    std::vector<std::string> names;
    for (const OptionOutline& option : verb.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    std::string text = "        " + pattern + ":*)\n";
    text += "            if [[ $word == -* ]]; then\n";
    text += "                words=\"" + joined(names, " ") + "\"\n";
    if (!verb_names.empty()) {
        text += "            else\n                words=\"" + joined(verb_names, " ") + "\"\n";
    } else if (!verb.arguments.empty() && verb.arguments.front().is_path) {
        text += "            else\n                _framewell_files \"$word\"\n";
        text += "                return\n";
    }
    return text + "            fi\n            ;;\n";
}

}  // namespace

std::string bash_completion(const Outline& outline) {
    std::string script = kHead;
    std::vector<std::string> verb_names;
    for (const VerbOutline& verb : outline.verbs) {
        script += value_cases(verb);
        verb_names.push_back(verb.name);
    }
    script += word_case("", outline.tool, verb_names);
    for (const VerbOutline& verb : outline.verbs) {
        script += word_case(verb.name, verb, {});
    }
    return script + kTail;
}

}  // namespace tool
