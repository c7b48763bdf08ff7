// korvane: DICOM series to volumes and files, from the command line.
#include "CommandLine.h"
#include "Console.h"
#include "Verbs.h"
#include "terminal/Terminal.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>
#include <string_view>

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

void AddCommonOptions(CLI::App& verb) {
    verb.set_version_flag("-V,--version", "korvane " KORVANE_VERSION);
    CLI::Option* const quiet = verb.add_flag_callback(
        "-q,--quiet", [] { SetTalk(Talk::Quiet); }, "Say nothing but failures, show no progress");
    verb.add_flag_callback(
            "-v,--verbose", [] { SetTalk(Talk::Verbose); }, "Say what is done, and how long it takes")
        ->excludes(quiet);
}

struct Verb {
    std::string_view name;
    void (*add)(CLI::App& program);
};

constexpr Verb kVerbs[] = {{"phantom", AddPhantomVerb}, {"info", AddInfoVerb},       {"dump", AddDumpVerb},
                           {"convert", AddConvertVerb}, {"export", AddExportVerb},   {"slice", AddSliceVerb},
                           {"media", AddMediaVerb},     {"echo", AddEchoVerb},       {"send", AddSendVerb},
                           {"commit", AddCommitVerb},   {"find", AddFindVerb},       {"get", AddGetVerb},
                           {"move", AddMoveVerb},       {"receive", AddReceiveVerb}, {"batch", AddBatchVerb}};

// Where the first argument is a verb, that one alone: making the options of all takes a third of a short run.
void AddVerbs(CLI::App& program, const std::string& first) {
    program.require_subcommand(1);
    program.allow_windows_style_options(false);  // a path may begin with a slash on Windows too
    const auto named =
        std::find_if(std::begin(kVerbs), std::end(kVerbs), [&](const Verb& verb) { return verb.name == first; });
    for (const Verb& verb : kVerbs) {
        if (named == std::end(kVerbs) || &verb == named) verb.add(program);
    }
    AddCommonOptions(program);
    for (CLI::App* const verb : program.get_subcommands({})) {
        AddCommonOptions(*verb);
        for (CLI::App* const part : verb->get_subcommands({})) AddCommonOptions(*part);
    }
    program.footer("Exit status: 0 done, 1 failed, 2 wrong usage. \"korvane VERB --help\" tells more.");
}

// Prints what is wrong with the arguments, and which help tells more.
int RefuseUsage(const CLI::App& program, const std::vector<std::string>& arguments, const std::string& text) {
    const CLI::App* const verb = FindVerb(program, arguments);
    Complain(text);
    std::fprintf(stderr, "\"korvane %s--help\" tells what there is\n",
                 verb != nullptr ? (FullName(*verb) + " ").c_str() : "");
    return kWrongUsage;
}

int Run(const std::vector<std::string>& arguments) {
    CLI::App program("Works with DICOM series: looks into them, turns them into volumes, exports and slices these.",
                     "korvane");
    AddVerbs(program, arguments.size() > 1 ? arguments[1] : "");
    const std::string unknown = FindUnknown(program, arguments);
    if (!unknown.empty()) return RefuseUsage(program, arguments, unknown);
    try {
        // CLI11 takes them in reverse, without the program's name.
        const std::vector<std::string> whole = WithPorts(program, arguments);
        program.parse(std::vector<std::string>(whole.rbegin(), whole.rend() - 1));
    } catch (const CLI::Success& request) {
        return program.exit(request);  // --help, --version
    } catch (const CLI::ParseError& error) {
        return RefuseUsage(program, arguments, error.what());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw korvane::Error(korvane::ErrorKind::Disk, "cannot write to standard output");
    }
    return 0;
}

// The exit status for a failure, which has been printed already.
int StatusOf(const korvane::Error& error) {
    if (error.GetKind() == korvane::ErrorKind::Stopped) platform::EndByInterrupt();
    if (error.GetKind() != korvane::ErrorKind::WrongArgument) return kFailed;
    std::fputs(error.GetChoices().c_str(), stderr);
    return kWrongUsage;
}

}  // namespace

int main(int argc, char** argv) {
    platform::PrepareStandardOutput();
    platform::CatchInterrupts();
    try {
        return Run(platform::GetArguments(argc, argv));
    } catch (const korvane::Error& error) {
        Complain(error.what());
        return StatusOf(error);
    } catch (const std::bad_alloc&) {
        Complain("out of memory");
    } catch (const std::exception& error) {
        Complain(error.what());
    } catch (const char* text) {
        Complain(text);
    }
    return kFailed;
}
