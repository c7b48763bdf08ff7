// usage: series_to_analyze FILE...    one series of DICOM files in, volume.hdr and volume.img out
#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <iostream>
#include <memory>

int main(int argc, char** argv) {
    std::vector<std::unique_ptr<DICOMDataObject>> owned;
    std::vector<DICOMDataObject*> series;
    for (int i = 1; i < argc; ++i) {
        owned.emplace_back(LoadDICOMFile(argv[i], 0));
        if (owned.back()) series.push_back(owned.back().get());
    }
    CDicomVolume volume;
    volume.SetIODList(series, nullptr);  // orders the slices, derives spacing and origin
    volume.Alloc(true);                  // reads the pixels into one block

    CAnalyzeVolume analyze;
    analyze = volume;
    const bool saved = analyze.SaveUrl("file:.\\volume");
    std::cout << volume.GetNumFrames() << " slices " << (saved ? "saved" : analyze.GetError()) << "\n";
    return saved ? 0 : 1;
}
