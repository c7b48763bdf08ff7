// korvane convert: files into another transfer syntax.
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/core/Paths.h>
#include <Korvane/kit/core/TextEncoding.h>
#include <Korvane/kit/dataset/Conversion.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <system_error>

using namespace korvane;

namespace {

const std::map<std::string, std::string> kSyntaxes = {
    {"implicit", std::string(kImplicitLittleEndianUid)},
    {"explicit", std::string(kExplicitLittleEndianUid)},
    {"big", std::string(kExplicitBigEndianUid)},
    {"rle", "1.2.840.10008.1.2.5"},
    {"jpegll", "1.2.840.10008.1.2.4.70"},
};

struct Arguments {
    std::string input;
    std::string output;
    std::string syntax = "explicit";
};

void Convert(const Arguments& arguments) {
    const std::string& syntax = kSyntaxes.at(arguments.syntax);
    std::error_code error;
    const bool isFolder = std::filesystem::is_directory(PathFromText(arguments.input), error);
    if (isFolder && arguments.output == "-") throw UsageError("a folder does not go to standard output");
    Conversion conversion(syntax);
    if (!isFolder) {
        conversion.ConvertFile(arguments.input, arguments.output);
        return;
    }
    const ConversionCount count = conversion.ConvertFolder(arguments.input, arguments.output);
    std::printf("%zu files written to %s as %s\n", count.written, Visible(arguments.output).c_str(),
                DescribeSyntax(syntax).c_str());
    if (count.notDicom > 0) std::printf("%zu files are not DICOM and were left out\n", count.notDicom);
    if (count.failed > 0) throw HostError(std::to_string(count.failed) + " files could not be converted");
    if (count.written == 0) throw HostError(arguments.input + ": no DICOM files");
}

}  // namespace

void AddConvertVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("convert", "Rewrite files in another transfer syntax");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "A DICOM file, a folder with all below it, or - for standard input")
        ->required();
    verb->add_option("OUT", arguments->output,
                     "The file, the folder (made where it is not there), or - for standard output")
        ->required();
    verb->add_option("--syntax", arguments->syntax,
                     "implicit, explicit (the default), big: uncompressed; rle, jpegll: compressed without loss")
        ->check(CLI::IsMember(kSyntaxes));
    verb->callback([arguments] { Convert(*arguments); });
}
