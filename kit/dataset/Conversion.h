// Files into another transfer syntax.
#pragma once

#include "DataSetFile.h"

#include <string>
#include <string_view>

namespace korvane {

/// How many files went which way.
struct ConversionCount {
    std::size_t written = 0;
    std::size_t notDicom = 0;
    std::size_t failed = 0;
};

class Conversion {
public:
    /// `syntax`: a UID. Throws `HostError` when no codec module encodes it.
    explicit Conversion(std::string_view syntax);

    /// One file or stream; "-" is standard input or output, which gets nothing until all is decoded. A file is whole when it
    /// gets its name; devices and pipes are written as they are. An existing folder as `output` takes the file under its
    /// own name. Throws `HostError`.
    void ConvertFile(const std::string& input, const std::string& output);

    /// All files below a folder, under the same names below another one, which is made. The two must not contain each
    /// other. Failures of single files are warned of, and counted. Throws `HostError`, `Interrupted`.
    ConversionCount ConvertFolder(const std::string& input, const std::string& output);

private:
    DataSetFile Read(const std::string& input) const;
    bool Transcode(DICOMDataObject& dataSet, const std::string& output);
    void Prepare(DataSetFile& file, const std::string& name, const std::string& output);
    void Write(DataSetFile& file, const std::string& name, const std::string& output);
    void ConvertRead(DataSetFile& file, const std::string& input, const std::string& output);

    std::string m_Syntax;
    CodecManager m_Codecs;
};

}  // namespace korvane
