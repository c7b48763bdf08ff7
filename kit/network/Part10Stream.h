// DICOM files that come over a connection (PS3.10), as a web service sends them.
#pragma once

#include "Dicom/Lib/network/StorageProvider.h"
#include "Dicom/Lib/syntax/DataSetWalker.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

/// Gives a file, which comes in pieces of any size, to a sink as if it had been sent by C-STORE: class, instance and
/// transfer syntax are those of its meta information, and the data set must be whole and have the same (`CheckDataSet`).
/// Meta information is held, at most 1 MB of it; the data set is passed on.
class Part10Stream {
public:
    explicit Part10Stream(StorageSink& sink) : m_Sink(sink) {}

    void Feed(std::string_view bytes);
    /// The file is over: the sink is told the outcome (`Answered`), and so is the caller.
    std::uint16_t End();
    /// The file was cut off: nothing of it stays, and nothing is told.
    void Discard();

    /// Empty until the meta information has come.
    const StorageRequest& GetRequest() const { return m_Request; }

private:
    bool TakeHead();
    void Refuse(std::uint16_t status, const std::string& why);
    void Begin();

    StorageSink& m_Sink;
    std::string m_Head;  // what has come of preamble and meta information, until that is whole
    bool m_bBegun = false;
    StorageRequest m_Request;
    std::optional<DataSetWalker> m_Walker;  // not for deflated data sets, which the sink checks
    std::uint16_t m_Status = 0;
    std::string m_Why;
};

}  // namespace korvane
