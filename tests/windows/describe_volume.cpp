// usage: describe_volume DUMP FILE...    assembles a series; `CVolume::Dump` to DUMP, every number bit for bit to stdout
#include "../../host/terminal/Terminal.h"
#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace {

void PrintBits(const char* name, std::span<const float> values) {
    std::printf("%s", name);
    for (const float value : values) std::printf(" %08X", unsigned{std::bit_cast<std::uint32_t>(value)});
    std::printf("\n");
}

// Fowler, Noll and Vo's hash, 64 bits.
unsigned long long Hash(const void* bytes, std::size_t count) {
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const auto* byte = static_cast<const unsigned char*>(bytes); count > 0; --count, ++byte) {
        hash = (hash ^ *byte) * 0x100000001B3U;
    }
    return hash;
}

void PrintPlanes(CVolume& volume, const int (&dim)[4]) {
    const auto bytes = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]) *
                       static_cast<std::size_t>(dim[3]) * static_cast<std::size_t>(volume.GetTypeSize());
    for (int k = 0; k < dim[2]; ++k) {
        CImagePlane& plane = *volume.GetPlane(k);
        std::printf("plane %d %016llX", k, Hash(plane.m_pData, plane.m_pData != nullptr ? bytes : 0));
        PrintBits("", plane.m_Org);
        float thickness[3];
        thickness[0] = volume.GetSliceThickness(static_cast<short>(k), thickness + 1, thickness + 2);
        PrintBits("thickness", thickness);
    }
    volume.UpdateZInterpArray();
    for (int i = 0; const ZInterpVector* const record = volume.MapVoxToZInterp(i); ++i) {
        std::printf("record %d planes %d %d", i, record->m_nLow, record->m_nHigh);
        PrintBits("", std::array{record->m_z, record->m_t, record->m_wLow, record->m_wHigh, record->m_zLowVox,
                                 record->m_zHighVox});
    }
}

void Describe(CDicomVolume& assembled, const char* dump) {
    CVolume& volume = *assembled.GetVolume();
    volume.Dump(dump);
    int dim[4];
    float spacing[4], origin[4], orientation[2][3], voxel[3] = {1.25F, 2.5F, 3.75F}, patient[3];
    volume.GetDimensions(dim);
    std::printf("%d x %d x %d x %d, type %d, %lld to %lld\n", dim[0], dim[1], dim[2], dim[3],
                static_cast<int>(volume.GetType()), volume.GetMin(), volume.GetMax());
    volume.GetSpacing(spacing);
    PrintBits("spacing", spacing);
    volume.GetOrigin(origin);
    PrintBits("origin", origin);
    volume.GetOrientation(orientation);
    for (const auto& cosines : orientation) PrintBits("orientation", cosines);
    for (const auto& unit : {assembled.m_Row, assembled.m_Col, assembled.m_Normal}) PrintBits("unit", {unit, 3});
    assembled.VolToDicom(voxel, patient);
    PrintBits("patient", patient);
    for (const int index : assembled.m_SliceToIndex) std::printf("%d ", index);
    std::printf("\n");
    PrintPlanes(volume, dim);
}

void Assemble(const std::vector<std::string>& arguments) {
    std::vector<std::unique_ptr<DICOMDataObject>> images;
    std::vector<DICOMDataObject*> series;
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        std::unique_ptr<DICOMDataObject> file(LoadDICOMFile(arguments[i].c_str()));
        if (!file || file->GetVR(0x7FE0, 0x0010) == nullptr) continue;
        series.push_back(file.get());
        images.push_back(std::move(file));
    }
    if (series.empty()) throw "no images";
    CDicomVolume assembled;
    assembled.SetIODList(series, nullptr);
    assembled.Alloc(true);
    Describe(assembled, arguments[1].c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    platform::PrepareStandardOutput();
    try {
        Assemble(platform::GetArguments(argc, argv));
        return 0;
    } catch (const char* text) {
        std::printf("%s\n", text);
        return 1;
    }
}
