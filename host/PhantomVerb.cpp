// korvane phantom: writes a synthetic CT series.
#include "Console.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    std::string directory;
    PhantomOptions series;
};

void Write(const Arguments& arguments) {
    ConsoleWatcher watcher;
    PhantomOptions options = arguments.series;
    options.watcher = &watcher;
    const std::size_t count = WritePhantom(arguments.directory, options).size();
    std::printf("%zu slices of %d x %d in %s\n", count, options.columns, options.rows, arguments.directory.c_str());
}

}  // namespace

void AddPhantomVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("phantom", "Write a synthetic CT series of ellipsoids");
    const auto arguments = std::make_shared<Arguments>();
    PhantomOptions& series = arguments->series;
    verb->add_option("DIR", arguments->directory, "Folder for the files; made when it is not there")->required();
    verb->add_option("--slices", series.slices, "Slices of a volume")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    const auto size = std::make_shared<int>(series.columns);
    verb->add_option("--size", *size, "Columns, and rows unless --rows is given")
        ->check(CLI::Range(1, 32767))
        ->capture_default_str();
    CLI::Option* const rows = verb->add_option("--rows", series.rows, "Rows")->check(CLI::Range(1, 32767));
    verb->add_option("--volumes", series.volumes, "Volumes at the same positions: a time series")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    verb->add_option("--seed", series.seed, "Another number gives other UIDs and another noise")->capture_default_str();
    verb->add_flag("--oblique", series.oblique, "Planes that are not parallel to a patient axis");
    verb->add_flag("--uneven", series.uneven, "Distances between planes differ");
    verb->add_flag("--signed", series.isSigned, "Signed pixels, intercept 0");
    verb->add_flag("--descending", series.descending, "Instance numbers from head to feet");
    verb->callback([arguments, size, rows] {
        arguments->series.columns = *size;
        if (rows->empty()) arguments->series.rows = *size;
        Write(*arguments);
    });
}
