#include "Reader.h"

#include <Korvane/Dicom.h>
#include <Korvane/series/CDicomVolume.h>

#include <stdexcept>

namespace {

class ToolkitVolume : public Reader::Volume {
public:
    explicit ToolkitVolume(const Series& series) {
        std::vector<DICOMDataObject*> list;
        for (const std::string& path : series.GetFiles()) {
            m_DataSets.emplace_back(LoadDICOMFile(path.c_str()));
            if (m_DataSets.back() == nullptr) throw std::runtime_error("cannot load " + path);
            list.push_back(m_DataSets.back().get());
        }
        m_Volume.SetIODList(list, nullptr);
        m_Volume.Alloc(true);
    }

    const void* GetPixels() override { return m_Volume.GetVolume()->GetVolumePt(); }

private:
    std::vector<std::unique_ptr<DICOMDataObject>> m_DataSets;
    CDicomVolume m_Volume;
};

class ToolkitReader : public Reader {
public:
    ToolkitReader() {
        std::size_t count = 0;
        const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
        m_Dictionary.Build(rows, count);
    }

    std::string GetName() const override { return "Korvane"; }

    std::unique_ptr<Volume> ReadVolume(const Series& series) override {
        return std::make_unique<ToolkitVolume>(series);
    }

    void ReadHeader(const std::string& path) override {
        if (m_Reader.Load(path.c_str(), kStopBeforePixelData) == nullptr || !m_Reader.HasStopped()) {
            throw std::runtime_error("cannot read the header of " + path);
        }
    }

    std::size_t Parse(const std::string& stream) override {
        const auto dataSet = m_Reader.LoadMemory(stream.data(), stream.size());
        if (dataSet == nullptr || !m_Reader.IsComplete()) throw std::runtime_error("cannot parse");
        if (const VR* const sequence = dataSet->GetVR(tags::ContentSequence)) return sequence->GetItemCount();
        std::size_t count = 0;
        for (const VR* element = dataSet->GetFirst(); element != nullptr; element = dataSet->GetNext(element)) {
            if (element->m_Group != 0x0002) ++count;
        }
        return count;
    }

private:
    DcmDictionary m_Dictionary;
    TransferSyntaxCodec m_Codec{&m_Dictionary};
    DICOMFileReader m_Reader{m_Codec};
};

}  // namespace

std::unique_ptr<Reader> MakeToolkitReader() {
    return std::make_unique<ToolkitReader>();
}
