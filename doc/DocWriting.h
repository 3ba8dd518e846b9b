// What the writers of the manual pages and the bash completions share: roff text, option entries and the
// completion script, over any option table whose rows have a name, a value, a default, a help sentence
// and the value's words.
#pragma once

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace DocWriting {

// Text for roff: backslashes and quotes made literal, every "-" a minus so that options can be copied,
// and a line never starting with a control character.
inline std::string roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else if (c == '\'')
            out += "\\(aq";
        else
            out += c;
    }
    return out.empty() || out[0] != '.' ? out : "\\&" + out;
}

template <typename Options>
void writeOptions(std::ostream& out, const Options& options) {
    for (const auto& option : options) {
        out << ".TP\n";
        if (option.value)
            out << ".BI " << roff(option.name) << " \" " << roff(option.value) << "\"\n";
        else
            out << ".B " << roff(option.name) << "\n";
        out << roff(option.help) << ".";
        if (option.defaultValue) out << "\nDefault: " << roff(option.defaultValue) << ".";
        out << "\n";
    }
}

inline std::string quotedWords(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : " ") + word;
    return "'" + list + "'";
}

// Values: a list of words, files (the value's name says FILE, maybe with an extension), or free text.
template <typename Options>
void writeValueCompletions(std::ostream& out, const Options& options) {
    std::string freeText;
    for (const auto& option : options) {
        const std::string value = option.value ? option.value : "";
        const size_t dot = value.find('.');
        if (option.words)
            out << "        " << option.name << ") COMPREPLY=($(compgen -W " << quotedWords(option.words())
                << " -- \"$cur\")); return ;;\n";
        else if (value.find("FILE") != std::string::npos)
            out << "        " << option.name << ") _filedir"
                << (dot == std::string::npos ? "" : " " + value.substr(dot + 1)) << "; return ;;\n";
        else if (!value.empty())
            freeText += (freeText.empty() ? "" : " | ") + std::string(option.name);
    }
    if (!freeText.empty()) out << "        " << freeText << ") return ;;\n";
}

// The names of the options, or of the long ones alone.
template <typename Options>
std::vector<std::string> names(const Options& options, bool longOnly = false) {
    std::vector<std::string> list;
    for (const auto& option : options)
        if (!longOnly || std::string(option.name).compare(0, 2, "--") == 0) list.push_back(option.name);
    return list;
}

// The completion function _PROGRAM (its dashes as underscores): option values, option names, then files.
template <typename Options>
void writeCompletion(std::ostream& out, const std::string& program, const Options& options) {
    std::string function = "_" + program;
    for (char& c : function)
        if (c == '-') c = '_';
    out << "# bash completion for " << program << ", written from the program's option tables   -*- shell-script -*-\n"
        << function << "() {\n"
        << "    local cur prev words cword split\n"
        << "    _init_completion -s || return\n"
        << "    case $prev in\n";
    writeValueCompletions(out, options);
    out << "    esac\n"
        << "    $split && return\n"
        << "    case $cur in\n"
        << "        --*)\n"
        << "            COMPREPLY=($(compgen -W " << quotedWords(names(options, true)) << " -- \"$cur\"))\n"
        << "            ;;\n"
        << "        -*)\n"
        << "            COMPREPLY=($(compgen -W " << quotedWords(names(options)) << " -- \"$cur\"))\n"
        << "            ;;\n"
        << "        *)\n"
        << "            _filedir\n"
        << "            ;;\n"
        << "    esac\n"
        << "} && complete -F " << function << " " << program << "\n";
}

template <typename Write>
bool writeFile(const std::string& path, Write&& write) {
    std::ofstream file(path);
    write(file);
    file.close();
    if (!file) std::cerr << "write-docs: cannot write " << path << "\n";
    return bool(file);
}

}  // namespace DocWriting
