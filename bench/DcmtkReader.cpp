#include "Reader.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dctk.h>

#include <cstring>
#include <stdexcept>

namespace {

void Check(const OFCondition& condition) {
    if (condition.bad()) throw std::runtime_error(condition.text());
}

class DcmtkVolume : public Reader::Volume {
public:
    explicit DcmtkVolume(const Series& series) : m_Pixels(new std::uint16_t[Series::kVolumeBytes / 2]) {
        std::uint16_t* plane = m_Pixels.get();
        for (const std::string& path : series.GetFiles()) {
            m_Files.push_back(std::make_unique<DcmFileFormat>());
            Check(m_Files.back()->loadFile(path.c_str()));
            const Uint16* pixels = nullptr;
            unsigned long count = 0;
            Check(m_Files.back()->getDataset()->findAndGetUint16Array(DCM_PixelData, pixels, &count));
            if (count != Series::kSlicePixels) throw std::runtime_error("short pixel data");
            std::memcpy(plane, pixels, Series::kSlicePixels * sizeof *plane);
            plane += Series::kSlicePixels;
        }
    }

    const void* GetPixels() override { return m_Pixels.get(); }

private:
    std::vector<std::unique_ptr<DcmFileFormat>> m_Files;
    std::unique_ptr<std::uint16_t[]> m_Pixels;
};

class DcmtkReader : public Reader {
public:
    // Without this the library warns of every file that is read only up to its pixel data.
    DcmtkReader() { OFLog::configure(OFLogger::OFF_LOG_LEVEL); }

    std::string GetName() const override { return "DCMTK"; }

    std::unique_ptr<Volume> ReadVolume(const Series& series) override { return std::make_unique<DcmtkVolume>(series); }

    void ReadHeader(const std::string& path) override {
        DcmFileFormat file;
        Check(file.loadFileUntilTag(path.c_str(), EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect,
                                    DCM_PixelData));
    }

    std::size_t Parse(const std::string& stream) override {
        DcmInputBufferStream input;
        input.setBuffer(stream.data(), static_cast<offile_off_t>(stream.size()));
        input.setEos();
        DcmFileFormat file;
        file.transferInit();
        Check(file.read(input));
        file.transferEnd();
        DcmSequenceOfItems* sequence = nullptr;
        if (file.getDataset()->findAndGetSequence(DcmTagKey(0x0040, 0xA730), sequence).good()) return sequence->card();
        return file.getDataset()->card();
    }
};

}  // namespace

std::unique_ptr<Reader> MakeDcmtkReader() {
    return std::make_unique<DcmtkReader>();
}
