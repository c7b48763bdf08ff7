// DICOM files: with preamble and meta information (PS3.10 7.1), or the bare data set.
#pragma once

#include "../syntax/TransferSyntaxCodec.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

/// The syntax number, judged by the sixth byte of what comes next in the stream: the test that `DICOMFileReader`
/// describes.
int DetectSyntax(Buffer& buffer);

/// Skips preamble and "DICM" where they come next in the stream, and returns whether they did.
bool SkipPreamble(Buffer& buffer);

/// Reads a file and tells what it was. One reader may load many files, one after another.
///
/// A file with "DICM" at byte 128 begins at byte 132, any other at byte 0. The syntax is explicit little endian when
/// the sixth byte there, as a signed number, is above 10, else implicit. The test is deliberately so simple, and hosts
/// depend on it: an implicit stream whose first element's length has a second byte of 11 to 127 is taken for explicit.
/// Once group 0002 has named a transfer syntax of the table, what follows is read with that; without (0002,0010) the
/// test is made again behind the group; an unknown UID changes nothing. Deflated data is not read: the result ends
/// behind group 0002.
class DICOMFileReader {
public:
    /// The codec parses; it must outlive the reader.
    explicit DICOMFileReader(TransferSyntaxCodec& codec) : m_Codec(codec) {}

    /// Asked now and then while `Load` reads (each MB, and at least every 20 ms); after a yes the load fails. It stays
    /// for all files that follow.
    void SetStopQuestion(std::function<bool()> stop) { m_Stop = std::move(stop); }

    /// The data set, whole or as far as it could be parsed (see `IsComplete`); null with `errno` set when the file
    /// cannot be opened or read (EINTR: it was stopped), null when memory runs out. `option`: see `ParseOption`.
    std::unique_ptr<DICOMDataObject> Load(const char* path, int option = kParseAll);

    /// The same from bytes in memory.
    std::unique_ptr<DICOMDataObject> LoadMemory(const void* bytes, std::size_t count, int option = kParseAll);

    /// The same from a stream, from where it stands. After deflated data was met it stands behind group 0002.
    std::unique_ptr<DICOMDataObject> LoadStream(Buffer& buffer, int option = kParseAll);

    /// About the file loaded last:
    bool IsComplete() const { return m_bComplete; }           ///< the parse met no fault, and no open end
    bool HasPreamble() const { return m_bPreamble; }          ///< "DICM" stood at byte 128
    bool IsDeflated() const { return m_bDeflated; }           ///< only group 0002 was read
    bool HasStopped() const { return m_Codec.HasStopped(); }  ///< the pixel data hook ended the parse
    int GetSyntax() const { return m_Syntax; }                ///< the syntax number that the data set was read with
    const std::string& GetTransferSyntax() const { return m_TransferSyntax; }  ///< (0002,0010), "" without it

private:
    bool SelectSyntax(Buffer& buffer, const DICOMObject& dataSet);

    TransferSyntaxCodec& m_Codec;
    std::function<bool()> m_Stop;
    bool m_bComplete = false;
    bool m_bPreamble = false;
    bool m_bDeflated = false;
    int m_Syntax = 0;
    std::string m_TransferSyntax;
};

/// Reads a file with a codec (null: one without a dictionary). The caller owns the result; null on failure.
DICOMDataObject* LoadDICOMFile(const char* path, int option = kParseAll, TransferSyntaxCodec* codec = nullptr);

/// Writes a file with a codec (null: one without a dictionary). Modes: 1 the bare data set in the default encoding;
/// 2 the same behind preamble and meta information; 3 explicit VR little endian behind preamble and meta information.
/// Meta information is complete and itself explicit VR little endian.
///
/// Mode 3 names the type of each element: those without one get that of the codec's dictionary, or of the public one
/// where the codec has none (see `CompleteTypes`), so none is left out.
///
/// 1 when every byte was written. 0 for another mode, for a null, or for a data set that cannot be written so
/// (compressed pixel data, in items of sequences too, in modes 1 and 2, or without a compressed syntax in mode 3): no
/// file is touched then. 0 as well when opening, writing or closing fails.
///
/// Writing drains the data set. It keeps its elements where the file could not be opened; modes 2 and 3 have then set
/// group 0002. After a failure further on, the elements that had been written are gone from it, and the file under the
/// path, which has replaced the one that was there, is incomplete. To be safe from that, write a clone under another
/// name (`platform::ReplacingFile`).
int SaveDICOMFile(const char* path, int mode, DICOMObject* dataSet, TransferSyntaxCodec* codec = nullptr);
