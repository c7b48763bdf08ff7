// usage: series_to_analyze FILE...    one series of DICOM files in, volume.hdr and volume.img out
#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <iostream>
#include <memory>

int main(int argc, char** argv) {
    std::vector<std::unique_ptr<DICOMDataObject>> images;
    std::vector<DICOMDataObject*> series;
    for (int i = 1; i < argc; ++i) {
        std::unique_ptr<DICOMDataObject> file(LoadDICOMFile(argv[i]));
        if (!file || !file->GetVR(0x7FE0, 0x0010)) continue;  // no image
        series.push_back(file.get());
        images.push_back(std::move(file));
    }
    if (series.empty()) return 2;

    CDicomVolume volume;
    volume.SetIODList(series, nullptr);  // orders the slices, derives spacing and origin
    volume.Alloc(true);                  // reads the pixels into one block

    CAnalyzeVolume analyze;
    analyze = volume;
    const bool saved = analyze.SaveUrl("file:.\\volume");
    std::cout << volume.GetNumFrames() << (saved ? " slices saved\n" : " slices, saving failed\n");
    return saved ? 0 : 1;
}
