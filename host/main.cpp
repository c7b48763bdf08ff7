// korvane: DICOM series to volumes and files, from the command line.
#include <Korvane/kit/core/HostError.h>
#include "Verbs.h"

#include <CLI/CLI.hpp>
#include <Korvane/Version.h>
#include "terminal/Terminal.h"

#include <cstdio>
#include <new>

using namespace korvane;

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

void AddVerbs(CLI::App& program) {
    program.require_subcommand(1);
    program.allow_windows_style_options(false);  // a path may begin with a slash on Windows too
    AddPhantomVerb(program);
    AddInfoVerb(program);
    AddDumpVerb(program);
    AddConvertVerb(program);
    AddExportVerb(program);
    AddSliceVerb(program);
    AddMediaVerb(program);
    AddEchoVerb(program);
    AddSendVerb(program);
    AddReceiveVerb(program);
    program.set_version_flag("--version", "korvane " KORVANE_VERSION);
    for (CLI::App* const verb : program.get_subcommands({})) {
        verb->set_version_flag("--version", "korvane " KORVANE_VERSION);
    }
    program.footer("Exit status: 0 done, 1 failed, 2 wrong usage. \"korvane VERB --help\" tells more.");
}

int Run(const std::vector<std::string>& arguments) {
    CLI::App program("Works with DICOM series: looks into them, turns them into volumes, exports and slices these.",
                     "korvane");
    AddVerbs(program);
    try {
        // CLI11 takes them in reverse, without the program's name.
        program.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend() - 1));
    } catch (const CLI::Success& request) {
        return program.exit(request);  // --help, --version
    } catch (const CLI::ParseError& error) {
        Warn(error.what());
        std::fprintf(stderr, "\"korvane --help\" tells what there is\n");
        return kWrongUsage;
    } catch (const UsageError& error) {
        Warn(error.what());
        std::fputs(error.GetChoices().c_str(), stderr);
        return kWrongUsage;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) throw HostError("cannot write to standard output");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    platform::PrepareStandardOutput();
    platform::CatchInterrupts();
    try {
        return Run(platform::GetArguments(argc, argv));
    } catch (const std::bad_alloc&) {
        Warn("out of memory");
    } catch (const std::exception& error) {
        Warn(error.what());
    } catch (const char* text) {
        Warn(text);
    }
    return kFailed;
}
