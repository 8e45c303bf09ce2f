#include "man_page.h"

#include "command_line.h"

#include <algorithm>
#include <array>

namespace tool {

namespace {

struct Example {
    const char* command;
    const char* text;
};

constexpr std::array<Example, 9> kExamples{{
    {"framewell probe clip.mp4", "Show the streams, sizes, rates and the duration of a file."},
    {"framewell frame clip.mp4 --at 1.5 -o picture.png",
     "Write the picture that is shown at 1.5 seconds."},
    {"framewell frame clip.mp4 --at 1/3 --at 00:02 -o picture-%d.png",
     "Write the pictures at a third of a second and at two seconds."},
    {"echo 0.5 | framewell frame clip.mp4 --at - --json",
     "Answer each line of standard input with one line of JSON, before the next is read."},
    {"framewell audio clip.mp4 --from 0.5 --to 2 -o sound.wav",
     "Write the samples from half a second to two seconds; the one at two seconds is not in it."},
    {"framewell mix clip.mp4 sound.wav@0.5:64 -o mix.wav",
     "Mix two sounds, the second from half a second on and at half its volume."},
    {"framewell cover clip.mp4 --box 320x240 -o cover.png",
     "Write one picture of the file, about as small as the box."},
    {"framewell sheet clip.mp4 -o sheet.png", "Write a contact sheet of the whole file."},
    {"framewell verify clip.mp4",
     "Check that every order of questions gets the same pictures and sound."},
}};

// No character of the text is taken as a command of the page's language.
std::string plain(const std::string& text) {
    std::string escaped = with_replaced(with_replaced(text, '\\', "\\e"), '-', "\\-");
    if (!escaped.empty() && (escaped.front() == '.' || escaped.front() == '\'')) {
        escaped.insert(0, "\\&");
    }
    return escaped;
}

std::string bold(const std::string& text) {
    return "\\fB" + plain(text) + "\\fR";
}

std::string italic(const std::string& text) {
    return "\\fI" + plain(text) + "\\fR";
}

// As a sentence; what stands between backquotes is bold. A name that is explained ("full: ...")
// keeps its small letter.
std::string sentence(const std::string& text) {
    std::string result;
    bool is_bold = false;
    for (const char c : text) {
        if (c == '`') {
            is_bold = !is_bold;
            result += is_bold ? "\\fB" : "\\fR";
        } else {
            result += plain(std::string(1, c));
        }
    }
    const bool begins_with_name = text.substr(0, text.find(' ')).find(':') != std::string::npos;
    if (!begins_with_name && !result.empty() && result.front() >= 'a' && result.front() <= 'z') {
        result.front() = static_cast<char>(result.front() - 'a' + 'A');
    }
    return result + (result.empty() || result.back() == '.' ? "" : ".");
}

std::string names_and_value(const OptionOutline& option) {
    std::string line;
    for (const std::string& name : option.names) {
        line += (line.empty() ? "" : ", ") + bold(name);
    }
    if (!option.value.empty()) {
        line += (line.empty() ? "" : " ") + italic(option.value);
    }
    return line;
}

std::string option_entry(const OptionOutline& option) {
    std::string entry = ".TP\n" + names_and_value(option) + "\n" + sentence(option.text) + "\n";
    if (!option.choices.empty()) {
        entry += "One of ";
        for (std::size_t i = 0; i < option.choices.size(); i++) {
            entry += (i == 0 ? "" : ", ") + bold(option.choices[i]);
        }
        entry += ".\n";
    }
    if (!option.excludes.empty()) {
        entry += "Not together with " + bold(joined(option.excludes, ", ")) + ".\n";
    }
    return entry;
}

bool has_name(const VerbOutline& verb, const std::string& name) {
    for (const OptionOutline& option : verb.options) {
        for (const std::string& other : option.names) {
            if (other == name) {
                return true;
            }
        }
    }
    return false;
}

// "framewell frame FILE --at T ... [OPTION ...]"
std::string usage(const VerbOutline& verb) {
    std::string line = bold("framewell " + verb.name);
    for (const OptionOutline& argument : verb.arguments) {
        line += " " + italic(argument.value) + (argument.repeats ? " ..." : "");
    }
    for (const OptionOutline& option : verb.options) {
        if (option.required) {
            line += " " + bold(option.names.front()) + " " + italic(option.value) +
                    (option.repeats ? " ..." : "");
        }
    }
    return line + " [" + italic("OPTION") + " ...]\n";
}

std::string synopsis(const Outline& outline) {
    std::string text = ".SH SYNOPSIS\n";
    for (const VerbOutline& verb : outline.verbs) {
        text += (verb.name == outline.verbs.front().name ? "" : ".br\n") + usage(verb);
    }
    return text + ".br\n" + bold("framewell") + " " + bold("--help") + " | " + bold("--version") +
           "\n";
}

constexpr const char* kDescription = R"(.SH DESCRIPTION
.B framewell
answers questions about media files: what is in a file, which picture it shows at a time, and how it
sounds from one time to another.
It answers exactly: the picture at a time is the last one that begins at or before it, whichever way
it was reached.
.PP
A time is counted from the movie's start.
It is written as seconds (12.5), as a fraction of seconds (1001/30000), or as [hh:]mm:ss[.fff].
.PP
What was asked for goes to standard output, or to the file that
.B \-o
names; errors go to standard error, one line each.
)";

std::string commands(const Outline& outline) {
    std::string text = ".SH COMMANDS\n";
    for (const VerbOutline& verb : outline.verbs) {
        text += ".SS " + usage(verb) + sentence(verb.text) + "\n";
        for (const OptionOutline& argument : verb.arguments) {
            text += option_entry(argument);
        }
        for (const OptionOutline& option : verb.options) {
            if (!has_name(outline.tool, option.names.front())) {
                text += option_entry(option);
            }
        }
    }
    return text;
}

// Those of the tool itself, with what stands at every verb, too.
std::string common_options(const Outline& outline) {
    std::string text =
        ".SH OPTIONS\nThese are understood everywhere, except that the version is told before a "
        "command only.\n";
    for (const OptionOutline& option : outline.tool.options) {
        text += option_entry(option);
    }
    return text;
}

std::string exit_status() {
    std::string text = ".SH EXIT STATUS\n";
    for (const ExitMeaning& meaning : kExitMeanings) {
        text += ".TP\n" + bold(std::to_string(static_cast<int>(meaning.status))) + "\n" +
                sentence(meaning.text) + "\n";
    }
    return text;
}

std::string examples() {
    std::string text = ".SH EXAMPLES\n";
    for (const Example& example : kExamples) {
        text += ".TP\n" + bold(example.command) + "\n" + sentence(example.text) + "\n";
    }
    return text;
}

// Breaks lines that are not commands at spaces, since pages are read as source, too.
std::string wrapped(const std::string& page) {
    constexpr std::size_t width = 78;
    std::string result;
    std::size_t begin = 0;
    while (begin < page.size()) {
        const std::size_t line_end = page.find('\n', begin);
        std::size_t end = line_end;
        const bool is_command = page[begin] == '.';
        if (!is_command && line_end - begin > width) {
            const std::size_t space = page.rfind(' ', begin + width);
            end = space != std::string::npos && space > begin ? space : page.find(' ', begin);
            end = std::min(end, line_end);
        }
        result += page.substr(begin, end - begin) + "\n";
        begin = end + 1;
        // What was in the middle of a line must not become a command.
        if (end != line_end && (page[begin] == '.' || page[begin] == '\'')) {
            result += "\\&";
        }
    }
    return result;
}

}  // namespace

std::string man_page(const Outline& outline, const std::string& version, const std::string& date) {
    const std::string& full_name = outline.tool.text;  // "framewell: what it is"
    const std::size_t colon = full_name.find(": ");
    std::string page = ".TH FRAMEWELL 1 \"" + date + "\" \"framewell " + version + "\"\n";
    page += ".SH NAME\nframewell \\- " +
            plain(colon == std::string::npos ? full_name : full_name.substr(colon + 2)) + "\n";
    page += synopsis(outline) + kDescription + commands(outline) + common_options(outline);
    page += exit_status() + examples() + ".SH SEE ALSO\n.BR ffmpeg (1),\n.BR ffprobe (1)\n";
    return wrapped(page);
}

}  // namespace tool
