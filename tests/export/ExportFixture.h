// What the export tests share: a folder of their own, whole files as texts, and small series made in memory.
#pragma once

#include "series/SeriesFixture.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

/// A fresh folder for each test, removed behind it.
class ExportTest : public ::testing::Test {
protected:
    ExportTest() {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        m_Folder = std::filesystem::path(::testing::TempDir()) /
                   (std::string("korvane_") + test->test_suite_name() + "_" + test->name());
        std::filesystem::remove_all(m_Folder);
        std::filesystem::create_directories(m_Folder);
    }
    ~ExportTest() override { std::filesystem::remove_all(m_Folder); }

    std::string Path(const std::string& name) const { return (m_Folder / name).string(); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(m_Folder / name); }
    std::string ReadBack(const std::string& name) const {
        std::ifstream file(m_Folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void MakeFile(const std::string& name, const std::string& bytes) const {
        std::ofstream(m_Folder / name, std::ios::binary) << bytes;
    }

    std::filesystem::path m_Folder;
};

/// The text that a call throws as a `char*`.
inline std::string ThrownText(const std::function<void()>& call) {
    try {
        call();
    } catch (char* text) {
        return text;
    }
    return "nothing thrown";
}

/// What a test series is made of: slices of 3 columns by 2 rows, the voxels counting up from `first` all the way.
struct SeriesForm {
    int slices = 3, bits = 16, isSigned = 1, first = 0, stored = bits;
    const char* modality = "MR";
};

/// A series in which plane k is made of data set k.
class TestSeries {
public:
    explicit TestSeries(SeriesForm form) {
        std::vector<DICOMDataObject*> list;
        for (int slice = 0; slice < form.slices; ++slice) {
            std::string pixels;
            for (int i = 0; i < 6; ++i, ++form.first) {
                pixels.append(reinterpret_cast<const char*>(&form.first), static_cast<std::size_t>(form.bits / 8));
            }
            m_DataSets.push_back(SliceAt(-2 * slice)
                                     .Matrix(2, 3)
                                     .Form(form.bits, form.stored, form.stored - 1, form.isSigned != 0)
                                     .Text(0x00080060, form.modality)
                                     .Text(0x00280030, "0.5\\0.75")
                                     .Bytes(0x7FE00010, pixels.data(), pixels.size())
                                     .Make());
            list.push_back(m_DataSets.back().get());
        }
        m_Series.SetIODList(list, nullptr);
        m_Series.Alloc(true);
    }
    operator CDicomVolume&() { return m_Series; }
    CVolume* Volume() { return m_Series.GetVolume(); }

private:
    std::vector<std::unique_ptr<DICOMDataObject>> m_DataSets;
    CDicomVolume m_Series;
};
