#include "Reader.h"

#include <gdcmImageReader.h>
#include <gdcmSequenceOfItems.h>

#include <istream>
#include <stdexcept>
#include <streambuf>

namespace {

class GdcmVolume : public Reader::Volume {
public:
    explicit GdcmVolume(const Series& series) : m_Pixels(new std::uint16_t[Series::kVolumeBytes / 2]) {
        std::uint16_t* plane = m_Pixels.get();
        for (const std::string& path : series.GetFiles()) {
            m_Files.push_back(std::make_unique<gdcm::ImageReader>());
            m_Files.back()->SetFileName(path.c_str());
            if (!m_Files.back()->Read()) throw std::runtime_error("cannot read " + path);
            const gdcm::Image& image = m_Files.back()->GetImage();
            if (image.GetBufferLength() != Series::kSlicePixels * sizeof *plane ||
                !image.GetBuffer(reinterpret_cast<char*>(plane))) {
                throw std::runtime_error("short pixel data");
            }
            plane += Series::kSlicePixels;
        }
    }

    const void* GetPixels() override { return m_Pixels.get(); }

private:
    std::vector<std::unique_ptr<gdcm::ImageReader>> m_Files;
    std::unique_ptr<std::uint16_t[]> m_Pixels;
};

class GdcmReader : public Reader {
public:
    std::string GetName() const override { return "GDCM"; }

    std::unique_ptr<Volume> ReadVolume(const Series& series) override { return std::make_unique<GdcmVolume>(series); }

    void ReadHeader(const std::string& path) override {
        gdcm::Reader reader;
        reader.SetFileName(path.c_str());
        if (!reader.ReadUpToTag(gdcm::Tag(0x7FE0, 0x0010))) throw std::runtime_error("cannot read " + path);
    }

    std::size_t Parse(const std::string& stream) override {
        MemoryStream source(stream);
        std::istream input(&source);
        gdcm::Reader reader;
        reader.SetStream(input);
        if (!reader.Read()) throw std::runtime_error("cannot parse");
        const gdcm::DataSet& dataSet = reader.GetFile().GetDataSet();
        const gdcm::Tag sequence(0x0040, 0xA730);
        if (!dataSet.FindDataElement(sequence)) return dataSet.Size();
        return dataSet.GetDataElement(sequence).GetValueAsSQ()->GetNumberOfItems();
    }

private:
    // The bytes as a stream, without a copy.
    class MemoryStream : public std::streambuf {
    public:
        explicit MemoryStream(const std::string& bytes) {
            char* const first = const_cast<char*>(bytes.data());
            setg(first, first, first + bytes.size());
        }

    protected:
        pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode) override {
            char* const base = from == std::ios_base::beg ? eback() : from == std::ios_base::cur ? gptr() : egptr();
            if (offset < eback() - base || offset > egptr() - base) return pos_type(off_type(-1));
            setg(eback(), base + offset, egptr());
            return gptr() - eback();
        }
        pos_type seekpos(pos_type position, std::ios_base::openmode mode) override {
            return seekoff(position, std::ios_base::beg, mode);
        }
    };
};

}  // namespace

std::unique_ptr<Reader> MakeGdcmReader() {
    return std::make_unique<GdcmReader>();
}
