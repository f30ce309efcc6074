#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Command.h"

namespace Cli {
namespace {

// A command line as its help shows it, for pages that are made from it.
struct Flag {
    std::vector<std::string> names;    // with their dashes
    std::string value;                 // the name of its value; empty for none
    std::vector<std::string> choices;  // the values it takes, when they are few
    std::string text;
    bool takesFile() const { return value == "FILE" || value == "DIR"; }
};

struct Page {
    std::string name;
    std::string text;
    std::string footer;
    std::string arguments;
    std::vector<Flag> flags;
};

// The words in "NAME:{a,b}".
std::vector<std::string> choicesOf(std::string_view type) {
    std::vector<std::string> choices;
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}', open);
    if (open == std::string_view::npos || close == std::string_view::npos) return choices;
    std::string_view list = type.substr(open + 1, close - open - 1);
    while (!list.empty()) {
        const std::size_t comma = std::min(list.find(','), list.size());
        // A transformer shows "word->number".
        const std::string_view word = list.substr(0, comma);
        choices.emplace_back(word.substr(0, word.find("->")));
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return choices;
}

Flag flagOf(const CLI::Option& option) {
    Flag flag;
    for (const std::string& name : option.get_snames()) flag.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) flag.names.push_back("--" + name);
    flag.text = option.get_description();
    if (option.get_items_expected_max() == 0) return flag;
    const std::string type = option.get_type_name();
    flag.choices = choicesOf(type);
    flag.value = type.substr(0, type.find_first_of(":{ "));
    if (flag.value.empty()) flag.value = "VALUE";
    return flag;
}

Page pageOf(const CLI::App& app) {
    Page page;
    page.name = app.get_name();
    page.text = app.get_description();
    page.footer = app.get_footer();
    for (const CLI::Option* const option : app.get_options()) {
        if (!option->nonpositional()) {
            page.arguments += " [" + option->get_name(true) + "]";
        } else {
            page.flags.push_back(flagOf(*option));
        }
    }
    return page;
}

std::vector<Page> pagesOf(const CLI::App& app) {
    std::vector<Page> pages;
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        pages.push_back(pageOf(*command));
    }
    return pages;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string namesOf(const std::vector<Page>& pages) {
    std::vector<std::string> names;
    names.reserve(pages.size());
    for (const Page& page : pages) names.push_back(page.name);
    return joined(names);
}

// In single quotes of a shell; `shell` tells which.
std::string quoted(const std::string& text, std::string_view escape) {
    std::string out = "'";
    for (const char byte : text) {
        if (byte == '\'') {
            out += escape;
        } else {
            out += byte;
        }
    }
    return out + "'";
}

std::string bashOf(const std::vector<Page>& pages) {
    std::string out =
        "# Completion of kestrel for bash, made by `kestrel completion bash`.\n"
        "_kestrel() {\n"
        "    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    local command= word words= values=\n"
        "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        case $word in -*) ;; *) command=$word; break ;; esac\n"
        "    done\n"
        "    case $command:$before in\n";
    for (const Page& page : pages) {
        for (const Flag& flag : page.flags) {
            if (flag.value.empty()) continue;
            std::string pattern;
            for (const std::string& name : flag.names) {
                pattern += (pattern.empty() ? "" : "|") + page.name + ":" + name;
            }
            const std::string action =
                !flag.choices.empty() ? "values='" + joined(flag.choices) + "'"
                : flag.value == "DIR" ? "COMPREPLY=($(compgen -d -- \"$current\")); return"
                : flag.takesFile()    ? "COMPREPLY=($(compgen -f -- \"$current\")); return"
                                      : "return";
            out.append("        ").append(pattern).append(") ").append(action).append(" ;;\n");
        }
    }
    out +=
        "    esac\n"
        "    if [[ $values ]]; then\n"
        "        COMPREPLY=($(compgen -W \"$values\" -- \"$current\"))\n"
        "        return\n"
        "    fi\n"
        "    case $command in\n"
        "        '') words='" +
        namesOf(pages) + " --help --version' ;;\n";
    for (const Page& page : pages) {
        out += "        " + page.name + ") words='";
        for (const Flag& flag : page.flags) out += joined(flag.names) + " ";
        out += "' ;;\n";
    }
    return out +
           "    esac\n"
           "    if [[ -z $command || $current == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
           "    else\n"
           "        COMPREPLY=($(compgen -f -- \"$current\"))\n"
           "    fi\n"
           "}\n"
           "complete -o filenames -F _kestrel kestrel\n";
}

std::string zshOf(const std::vector<Page>& pages) {
    const auto described = [](const std::string& text) {
        std::string out;
        for (const char byte : text) {
            if (byte == '[' || byte == ']' || byte == ':' || byte == '\\') out += '\\';
            out += byte;
        }
        return out;
    };
    constexpr std::string_view escape = "'\\''";
    std::string out =
        "#compdef kestrel\n# Made by `kestrel completion zsh`.\n_kestrel() {\n"
        "    local -a commands\n    commands=(\n";
    for (const Page& page : pages) {
        out += "        " + quoted(page.name + ":" + described(page.text), escape) + "\n";
    }
    out +=
        "    )\n    if (( CURRENT == 2 )); then\n        _describe command commands\n"
        "        return\n    fi\n    case $words[2] in\n";
    for (const Page& page : pages) {
        out += "        " + page.name + ")\n            _arguments";
        for (const Flag& flag : page.flags) {
            for (const std::string& name : flag.names) {
                std::string text = "*" + name + "[" + described(flag.text) + "]";
                if (!flag.value.empty()) {
                    text += ":" + flag.value + ":";
                    text += !flag.choices.empty() ? "(" + joined(flag.choices) + ")"
                            : flag.takesFile()    ? "_files"
                                                  : "";
                }
                out += " \\\n                " + quoted(text, escape);
            }
        }
        out += " \\\n                '*:file:_files' ;;\n";
    }
    return out + "    esac\n}\n_kestrel \"$@\"\n";
}

std::string fishOf(const std::vector<Page>& pages) {
    constexpr std::string_view escape = "\\'";
    std::string out = "# Completion of kestrel for fish, made by `kestrel completion fish`.\n";
    for (const Page& page : pages) {
        out += "complete -c kestrel -n __fish_use_subcommand -xa " + page.name + " -d " +
               quoted(page.text, escape) + "\n";
    }
    for (const Page& page : pages) {
        for (const Flag& flag : page.flags) {
            out += "complete -c kestrel -n '__fish_seen_subcommand_from " + page.name + "'";
            for (const std::string& name : flag.names) {
                out += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            }
            if (!flag.choices.empty()) {
                out += " -xa '" + joined(flag.choices) + "'";
            } else if (!flag.value.empty()) {
                out += flag.takesFile() ? " -r" : " -x";
            }
            out += " -d " + quoted(flag.text, escape) + "\n";
        }
    }
    return out;
}

// Text of a page of the manual: what would be a request there is not.
std::string roff(std::string_view text) {
    std::string out;
    bool isLineStart = true;
    for (const char byte : text) {
        if (isLineStart && (byte == '.' || byte == '\'')) out += "\\&";
        if (byte == '\\') {
            out += "\\e";
        } else if (byte == '-') {
            out += "\\-";
        } else {
            out += byte;
        }
        isLineStart = byte == '\n';
    }
    return out;
}

std::string manOf(const Page& page, const std::vector<Page>& pages) {
    const bool isWhole = page.name == "kestrel";
    const std::string title = isWhole ? page.name : "kestrel-" + page.name;
    std::string upper = title;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char byte) { return byte >= 'a' && byte <= 'z' ? byte - 32 : byte; });
    std::string out = ".TH " + upper + " 1 \"\" \"kestrel " KESTREL_VERSION "\"\n.SH NAME\n" +
                      title + " \\- " + roff(page.text) + "\n.SH SYNOPSIS\n.B kestrel" +
                      (isWhole ? "\n.I COMMAND\n[OPTIONS]"
                               : " " + page.name + "\n[OPTIONS]" + roff(page.arguments)) +
                      "\n";
    if (isWhole) {
        out += ".SH COMMANDS\n";
        for (const Page& each : pages) {
            out += ".TP\n.BR kestrel\\-" + roff(each.name) + " (1)\n" + roff(each.text) + "\n";
        }
    }
    out += ".SH OPTIONS\n";
    for (const Flag& flag : page.flags) {
        out += ".TP\n.B ";
        std::string names;
        for (const std::string& name : flag.names) names += (names.empty() ? "" : ", ") + name;
        out += roff(names);
        if (!flag.value.empty()) out += " \\fI" + roff(flag.value) + "\\fR";
        out += "\n" + roff(flag.text) + "\n";
    }
    if (!page.footer.empty()) {
        out += ".SH NOTES\n.nf\n" + roff(page.footer) + "\n.fi\n";
    }
    return out + ".SH SEE ALSO\n" +
           (isWhole ? "The manual in the folder of the package's documents.\n"
                    : ".BR kestrel (1)\n");
}

}  // namespace

void addCompletionCommand(CLI::App& app, Action& action) {
    auto shell = std::make_shared<std::string>();
    CLI::App* command =
        app.add_subcommand("completion", "Write the completion of this command for a shell");
    command->add_option("SHELL", *shell, "bash, zsh or fish")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    command->footer("Example:\n  . <(kestrel completion bash)");
    command->callback([shell, &app, &action] {
        action = [shell, &app] {
            const std::vector<Page> pages = pagesOf(app);
            const std::string text = *shell == "bash"  ? bashOf(pages)
                                     : *shell == "zsh" ? zshOf(pages)
                                                       : fishOf(pages);
            std::fputs(text.c_str(), stdout);
            return ExitStatus::Success;
        };
    });
}

void addManCommand(CLI::App& app, Action& action) {
    auto name = std::make_shared<std::string>();
    auto lists = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("man", "Write the manual page of a command");
    command->add_option("COMMAND", *name, "The command; default kestrel itself")->type_name("");
    command->add_flag("--list", *lists, "Name the commands that have one");
    command->footer("Example:\n  kestrel man run | man -l -");
    command->callback([name, lists, &app, &action] {
        action = [name, lists, &app] {
            const std::vector<Page> pages = pagesOf(app);
            if (*lists) {
                for (const Page& page : pages) std::printf("%s\n", page.name.c_str());
                return ExitStatus::Success;
            }
            const auto found = std::find_if(pages.begin(), pages.end(),
                                            [&](const Page& page) { return page.name == *name; });
            if (found == pages.end() && !name->empty()) {
                report("no command '" + *name + "'");
                return ExitStatus::Usage;
            }
            const std::string text = manOf(found != pages.end() ? *found : pageOf(app), pages);
            std::fputs(text.c_str(), stdout);
            return ExitStatus::Success;
        };
    });
}

}  // namespace Cli
