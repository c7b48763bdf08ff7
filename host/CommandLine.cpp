#include "CommandLine.h"

#include <Korvane/Kit.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>

namespace {

// ", did you mean X?" for the nearest word, when one is near.
std::string Suggest(const std::string& word, const std::vector<std::string>& words) {
    const std::string nearest = korvane::NearestWord(word, words);
    return nearest.empty() ? "" : ", did you mean " + nearest + "?";
}

std::vector<std::string> OptionNames(const CLI::App& verb) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : verb.get_options({})) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    }
    return names;
}

// The name of the option that an argument names, or "" where it is a value: "--window=1,2" and "-ofile" name an option,
// "-1.5" and "-" do not.
std::string OptionName(const std::string& argument) {
    if (argument.size() < 2 || argument[0] != '-' || argument == "--") return {};
    if (argument[1] == '-') return argument.substr(0, argument.find('='));
    const bool isNumber = std::isdigit(static_cast<unsigned char>(argument[1])) != 0 || argument[1] == '.';
    return isNumber ? std::string() : argument.substr(0, 2);
}

// The verb of this name, or the part of a verb; null without.
const CLI::App* FindPart(const CLI::App& of, const std::string& name) {
    for (const CLI::App* const part : of.get_subcommands({})) {
        if (part->get_name() == name) return part;
    }
    return nullptr;
}

}  // namespace

const CLI::App* FindVerb(const CLI::App& program, const std::vector<std::string>& arguments) {
    const CLI::App* found = &program;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        if (!OptionName(arguments[i]).empty()) continue;
        const CLI::App* const part = FindPart(*found, arguments[i]);
        if (part == nullptr) break;
        found = part;
    }
    return found != &program ? found : nullptr;
}

std::string FullName(const CLI::App& verb) {
    const CLI::App* const parent = verb.get_parent();
    return parent != nullptr && parent->get_parent() != nullptr ? FullName(*parent) + ' ' + verb.get_name()
                                                                : verb.get_name();
}

std::string FindUnknown(const CLI::App& program, const std::vector<std::string>& arguments) {
    const CLI::App* const verb = FindVerb(program, arguments);
    std::string whose = verb != nullptr ? FullName(*verb) + ": " : "";
    const std::vector<std::string> known = OptionNames(verb != nullptr ? *verb : program);
    const CLI::App* at = &program;
    for (std::size_t i = 1; i < arguments.size() && arguments[i] != "--"; ++i) {
        const std::string name = OptionName(arguments[i]);
        if (name.empty()) {
            std::vector<std::string> verbs;
            for (const CLI::App* const each : at->get_subcommands({})) verbs.push_back(each->get_name());
            if (verbs.empty()) continue;
            at = FindPart(*at, arguments[i]);
            if (at == nullptr) {
                whose += "there is no verb " + arguments[i];
                return whose += Suggest(arguments[i], verbs);
            }
            continue;
        }
        if (std::find(known.begin(), known.end(), name) != known.end()) continue;
        whose += "there is no option " + name;
        return whose += Suggest(name, known);
    }
    return {};
}

std::vector<std::string> WithPorts(const CLI::App& program, std::vector<std::string> arguments) {
    const CLI::App* const verb = FindVerb(program, arguments);
    if (verb == nullptr || verb->get_option_no_throw("HOST") == nullptr) return arguments;
    const auto isAddress = [](const std::string& text) {
        return text.starts_with("https://") || text.starts_with("http://");
    };
    const auto found = std::find_if(arguments.begin(), arguments.end(), isAddress);
    if (found != arguments.end()) arguments.insert(found + 1, "");
    return arguments;
}
