// usage: series_to_analyze FILE...    one series of DICOM files in, volume.hdr and volume.img out
//
// The module alone, without the Kit: it does what it is told, so that a program says itself what it takes.
#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using Images = std::vector<std::unique_ptr<DICOMDataObject>>;

std::string TextOf(DICOMDataObject& image, unsigned short group, unsigned short element) {
    char text[65] = "";
    ReadDCMStringTag(&image, group, element, text, sizeof text);
    return text;
}

void AddImage(const std::string& path, Images& images) {
    std::unique_ptr<DICOMDataObject> image(LoadDICOMFile(path.c_str()));
    if (!image) throw std::runtime_error(path + ": not a DICOM file");
    if (!image->GetVR(0x7FE0, 0x0010)) throw std::runtime_error(path + ": holds no image");
    CodecManager codecs;
    if (!codecs.Decode(image.get())) throw std::runtime_error(path + ": " + codecs.GetError());
    if (!TextOf(*image, 0x0028, 0x0004).starts_with("MONOCHROME")) throw std::runtime_error(path + ": not grey");
    if (!images.empty() && TextOf(*image, 0x0020, 0x000E) != TextOf(*images[0], 0x0020, 0x000E)) {
        throw std::runtime_error(path + ": of another series than the files before it");
    }
    images.push_back(std::move(image));
}

// Saves the series and returns its number of slices.
int Save(const Images& images) {
    std::vector<DICOMDataObject*> series;
    for (const auto& image : images) series.push_back(image.get());
    CDicomVolume assembled;
    assembled.SetIODList(series, nullptr);  // orders the slices, derives spacing and origin
    if (assembled.IsMultiframe() && series.size() > 1) throw std::runtime_error("several multi-frame files");
    assembled.Alloc(true);  // reads the pixels into one block
    CVolume& volume = *assembled.GetVolume();
    if (volume.GetPlaneCount() == 0) throw std::runtime_error("the images differ in form, or lack pixels: no volume");
    volume.Update();  // finds the smallest and the largest voxel

    CAnalyzeVolume analyze;
    analyze = assembled;
    const ExportMapping mapping = analyze.GetMapping();  // tells whether unsigned voxels are shifted, too
    if (mapping.bits == 0) throw std::runtime_error("an Analyze file has no form for these voxels");
    const bool saved = analyze.SaveUrl("file:.\\volume");
    int size[4];
    volume.GetDimensions(size);
    const long long bytes = 1LL * size[0] * size[1] * size[2] * mapping.bits / 8;
    std::ifstream written("volume.img", std::ios::binary | std::ios::ate);
    if (!saved || written.tellg() != bytes) throw std::runtime_error("cannot write volume.hdr and volume.img");
    return size[2];
}

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: series_to_analyze FILE...\n";
        return 2;
    }
    try {
        Images images;
        for (int i = 1; i < argc; ++i) AddImage(argv[i], images);
        std::cout << Save(images) << " slices saved\n";
        return 0;
    } catch (const char* reason) {  // the module throws texts
        std::cerr << "series_to_analyze: " << reason << '\n';
    } catch (const std::exception& error) {
        std::cerr << "series_to_analyze: " << error.what() << '\n';
    }
    return 1;
}
