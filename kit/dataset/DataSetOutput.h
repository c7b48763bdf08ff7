// A data set on its way out: a Part 10 stream in any uncompressed or compressed transfer syntax.
#pragma once

#include "Toolkit.h"

#include "platform/ReplacingFile.h"

#include <string>
#include <string_view>

namespace korvane {

class LeftValueReader;

/// A file that gets its name when it is whole, and is removed when it does not get there. A link stays one to the file
/// that it leads to. Devices and pipes have no other name: they take what comes.
class UnfinishedFile {
public:
    /// Throws `Error`.
    explicit UnfinishedFile(const std::string& name);

    /// What to write to.
    const std::string& GetPath() const { return m_bDevice ? m_Name : m_File.GetUnfinished(); }
    /// Gives the file its name. Throws `Error`.
    void Finish();

private:
    std::string m_Name;
    bool m_bDevice = false;
    platform::ReplacingFile m_File;
};

/// The UID of a word of `GetSyntaxWords`; any other text as it is.
std::string SyntaxUid(const std::string& syntax);

/// Whether a data set is a directory of media: its records hold offsets into the file as it is.
bool IsMediaDirectory(const DICOMObject& dataSet);

/// Preamble, meta information and the data set, elements in the standard's order; the data set is empty afterwards.
/// `syntax` holds where the data set's pixels are as they are in it; what has no compressed pixels cannot be in a
/// compressed syntax and is written in explicit VR little endian. `codecs` gives the frames that it left to be written.
/// Values that were left in a file come from there by `left`, which throws when they cannot.
/// False when a write failed or a frame, about which `codecs` then says more.
bool WriteDataSet(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs,
                  LeftValueReader& left);

}  // namespace korvane
