// usage: make_medium ROOT SOURCE...    a DICOM medium in ROOT, checked afterwards
#include <Korvane/Kit.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    try {
        const korvane::MediumReport report = korvane::BuildMedium(argv[1], {argv + 2, argv + argc});
        for (const auto& fault : report.faults) std::cerr << fault.path << ": " << fault.why << '\n';
        const korvane::MediumContents medium = korvane::CheckMedium(argv[1]);
        for (const std::string& problem : medium.problems) std::cerr << problem << '\n';
        std::cout << medium.files << " files of " << medium.patients << " patients\n";
        return report.faults.empty() && medium.problems.empty() ? 0 : 1;
    } catch (const korvane::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
