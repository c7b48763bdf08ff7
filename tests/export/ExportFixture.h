// What the export tests share: whole files as texts, and small series made in memory.
#pragma once

#include "FolderTest.h"
#include "series/SeriesFixture.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

/// Each test has a folder of its own with an empty folder "sub" in it.
class ExportTest : public FolderTest {
protected:
    ExportTest() { std::filesystem::create_directories(m_Folder / "sub"); }

    std::string ReadBack(const std::string& name) const {
        std::ifstream file(m_Folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void MakeFile(const std::string& name, const std::string& bytes) const {
        std::ofstream(m_Folder / name, std::ios::binary) << bytes;
    }
};

/// Runs a call and returns the text that it throws as a `char*`.
inline std::string ThrownText(const std::function<void()>& call) {
    try {
        call();
    } catch (char* text) {
        return text;
    }
    return "nothing thrown";
}

/// Makes a text from the values of its bytes, zeros included.
inline std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) bytes.push_back(static_cast<char>(value));
    return bytes;
}

/// Asks to stop at the given percentage.
struct Stopper : CPercent {
    Stopper(int total, short stop) : m_nStop(stop) { SetTotElab(total); }
    bool OnProgress(short percent) override { return m_Percents += std::to_string(percent) + " ", percent == m_nStop; }
    short m_nStop;
    std::string m_Percents;
};

/// An exporter that records the calls of `Save`, and then saves or does what the test wants instead.
struct Recorder : CAnalyzeVolume {
    using CAnalyzeVolume::operator=;
    bool Save(const char* dir, const char* name) override {
        m_Saved = std::string(dir) + "|" + name;
        return m_OnSave ? m_OnSave() : CAnalyzeVolume::Save(dir, name);
    }
    std::string m_Saved = "nothing";
    std::function<bool()> m_OnSave;
};

/// A series of slices 2 mm apart, the voxels counting up from `first` all the way; plane k is slice k.
struct TestSeries {
    struct Form {
        int slices = 3, bits = 16, isSigned = 1, first = 0, stored = bits;
        const char* modality = "MR";
        std::map<Tag, std::string> texts = {};  // further elements
        int rows = 2, columns = 3;
        double x = 0, y = 0, z = 0;  // position of the first slice; the others lie toward the feet
        bool reverse = false;        // planes in the other order
    };
    explicit TestSeries(Form form) {
        std::vector<DICOMDataObject*> list;
        for (int slice = 0; slice < form.slices; ++slice) {
            std::string pixels;
            for (int i = 0; i < form.rows * form.columns; ++i, ++form.first) {
                pixels.append(reinterpret_cast<const char*>(&form.first), static_cast<std::size_t>(form.bits / 8));
            }
            DataSet set = SliceAt(0).Matrix(form.rows, form.columns).Bytes(0x7FE00010, pixels.data(), pixels.size());
            set.Text(0x00200032, Numbers({form.x, form.y, form.z - 2 * slice}));
            set.Text(0x00280030, "0.5\\0.75").Text(0x00080060, form.modality);
            for (const auto& [tag, text] : form.texts) set.Text(tag, text);
            m_DataSets.push_back(set.Form(form.bits, form.stored, form.stored - 1, form.isSigned != 0).Make());
            list.push_back(m_DataSets.back().get());
        }
        m_Series.m_bReverse = form.reverse;
        m_Series.SetIODList(list, nullptr);
        m_Series.Alloc(true);
    }
    /// The volume's minimum and maximum, as hosts set them before an export.
    TestSeries& Range(long long minimum, long long maximum) {
        m_Series.GetVolume()->SetMin(minimum);
        m_Series.GetVolume()->SetMax(maximum);
        return *this;
    }
    operator CDicomVolume&() { return m_Series; }

    std::vector<std::unique_ptr<DICOMDataObject>> m_DataSets;
    CDicomVolume m_Series;
};
