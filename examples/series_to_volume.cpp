// usage: series_to_volume FOLDER NAME    the one series in FOLDER becomes NAME.hdr and NAME.img
#include <Korvane/Kit.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        const korvane::Found found = korvane::Find({argv[1]});
        const korvane::Volume volume = korvane::Load(found.Only());  // throws where there is no series, or several
        for (const korvane::Finding& finding : volume.GetFindings()) std::cerr << "warning: " << finding.text << '\n';

        const korvane::ExportReport report = korvane::Export(volume, "analyze", std::string("file:") + argv[2]);
        for (const std::string& line : korvane::Describe(report)) std::cout << line << '\n';
    } catch (const korvane::Error& error) {
        std::cerr << error.what() << '\n' << error.GetChoices();
        return 1;
    }
}
