// usage: describe_volume DUMP FILE...    assembles a series; `CVolume::Dump` to DUMP, every number bit for bit to stdout
#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>
#include <Korvane/platform/Terminal.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

void PrintBits(const char* name, const float* values, std::size_t count) {
    std::printf("%s", name);
    for (std::size_t i = 0; i < count; ++i) std::printf(" %08X", unsigned{std::bit_cast<std::uint32_t>(values[i])});
    std::printf("\n");
}

/// Fowler, Noll and Vo's hash, 64 bits.
std::uint64_t Hash(const void* bytes, std::size_t count) {
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
        std::printf("plane %d %016llX", k,
                    static_cast<unsigned long long>(Hash(plane.m_pData, plane.m_pData != nullptr ? bytes : 0)));
        PrintBits("", plane.m_Org, 3);
        float thickness[3];
        thickness[0] = volume.GetSliceThickness(static_cast<short>(k), thickness + 1, thickness + 2);
        PrintBits("thickness", thickness, 3);
    }
}

void PrintTable(CVolume& volume) {
    volume.UpdateZInterpArray();
    int dims[3];
    volume.GetVoxelDims(dims);
    std::printf("table %d %d %d\n", dims[0], dims[1], dims[2]);
    for (int i = 0; const ZInterpVector* const record = volume.MapVoxToZInterp(i); ++i) {
        std::printf("record %d planes %d %d", i, record->m_nLow, record->m_nHigh);
        const float values[] = {record->m_z,     record->m_t,       record->m_wLow,
                                record->m_wHigh, record->m_zLowVox, record->m_zHighVox};
        PrintBits("", values, std::size(values));
    }
}

void Describe(CDicomVolume& assembled, const char* dump) {
    CVolume& volume = *assembled.GetVolume();
    volume.Dump(dump);
    int dim[4];
    float four[4];
    float orientation[2][3];
    volume.GetDimensions(dim);
    std::printf("%d x %d x %d x %d, type %d, %lld to %lld\n", dim[0], dim[1], dim[2], dim[3],
                static_cast<int>(volume.GetType()), volume.GetMin(), volume.GetMax());
    volume.GetSpacing(four);
    PrintBits("spacing", four, 4);
    volume.GetOrigin(four);
    PrintBits("origin", four, 4);
    volume.GetOrientation(orientation);
    for (const auto& cosines : orientation) PrintBits("orientation", cosines, 3);
    PrintBits("row", assembled.m_Row, 3);
    PrintBits("column", assembled.m_Col, 3);
    PrintBits("normal", assembled.m_Normal, 3);
    float voxel[3] = {1.25F, 2.5F, 3.75F};
    float patient[3];
    assembled.VolToDicom(voxel, patient);
    PrintBits("patient", patient, 3);
    for (const int index : assembled.m_SliceToIndex) std::printf("%d ", index);
    std::printf("\n");
    PrintPlanes(volume, dim);
    PrintTable(volume);
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
