// Turns byte streams into data sets and data sets into byte streams, in the uncompressed transfer syntaxes: implicit VR
// little endian, explicit VR little endian, explicit VR big endian (PS3.5 7, A.1 to A.3).
#pragma once

#include "../dataset/DICOMObject.h"
#include "../stream/Buffer.h"
#include "TransferSyntaxRow.h"

#include <cstdint>
#include <optional>

class DataSetParse;
class DcmDictionary;

/// What `ParseStream` may be told (bits).
enum ParseOption : int {
    kParseAll = 0,
    kStopBeforePixelData = 1  ///< the parse ends, with success, in front of Pixel Data at the top level
};

/// Results are 1 and 0; nothing is thrown. Byte order is the buffer's; the entry points set it.
///
/// In memory all values are little endian: what is read from or written to a big-endian stream is swapped by its value
/// representation (OW by words).
///
/// Limits on hostile streams: sequences nest at most 256 deep, and a length is checked against what the stream can still
/// hold before memory is taken; beyond either the parse returns 0. What was read until then stays in the target.
///
/// A subclass may stream pixel data through the hooks instead of holding it.
class TransferSyntaxCodec {
public:
    /// The dictionary completes types in implicit streams and in elements made without one. It may be null; not owned.
    explicit TransferSyntaxCodec(DcmDictionary* dictionary = nullptr);
    virtual ~TransferSyntaxCodec();
    TransferSyntaxCodec(const TransferSyntaxCodec&) = delete;
    TransferSyntaxCodec& operator=(const TransferSyntaxCodec&) = delete;

    // The order of the virtual operations is part of the interface. `depth` is 0 at the top, and grows by one for each
    // sequence and each item.

    virtual int Implicit_ParseRawVRIntoDCM(Buffer& buffer, DICOMObject* target, int depth);

    /// Encoding drains the data set: elements are taken out in tag order and destroyed as they are written. Left out are
    /// group 0002, group lengths ((0000,0000) stays in the implicit syntax) and, by the explicit encoder, what has no
    /// type that the dictionary could complete. Sequences and items are always written with undefined length.
    virtual int ImplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth);

    /// What the file writer uses in its modes 1 and 2: implicit VR little endian.
    virtual int DefaultEncode(Buffer& buffer, DICOMObject* dataSet);

    virtual int ExplicitParse(Buffer& buffer, DICOMObject* target, int depth);
    virtual int ExplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth);

    /// Parses by syntax number; see `ParseOption`.
    virtual int ParseStream(int syntax, Buffer& buffer, DICOMObject* target, int option);

    /// Encodes by syntax number.
    virtual int EncodeStream(int syntax, Buffer& buffer, DICOMObject* dataSet);

    /// Encapsulated pixel data (PS3.5 A.4): a run of items, the first the basic offset table. In memory each is an item
    /// of the pixel data element; see Encapsulation.h.
    virtual int EncodeEncapsulated(Buffer& buffer, VR& pixelData);
    virtual int ParseEncapsulated(Buffer& buffer, DICOMObject* target);

    /// Asked before (7FE0,0010) at the top level is read; its length is set, its value not there. Non-zero: the parse
    /// ends with success and leaves the rest of the stream unread. The default asks the option given to `ParseStream`.
    virtual int OnReadPixelData(Buffer& buffer, VR& pixelData);

    /// Writes the value of (7FE0,0010) at the top level, `length` bytes (even). Returns 1 or 0.
    virtual int OnWritePixelData(Buffer& buffer, VR& pixelData, std::uint32_t length);

    /// Makes group 0002 of the data set complete for the file writer's mode 2 (implicit) or 3 (explicit; compressed
    /// pixel data keeps its own syntax). 0 when the data set cannot be written so: encapsulated pixel data without a
    /// compressed syntax, or in another mode than 3.
    virtual int PrepareMetaInformation(DICOMObject* dataSet, int mode);

    /// The six entry points: banner to the dump log, byte order, work.
    int ParseImplicitLittleEndian(Buffer& buffer, DICOMObject* target);
    int EncodeImplicitLittleEndian(Buffer& buffer, DICOMObject* dataSet);
    int ParseExplicitLittleEndian(Buffer& buffer, DICOMObject* target);
    int EncodeExplicitLittleEndian(Buffer& buffer, DICOMObject* dataSet);
    int ParseExplicitBigEndian(Buffer& buffer, DICOMObject* target);
    int EncodeExplicitBigEndian(Buffer& buffer, DICOMObject* dataSet);

    /// File meta information (PS3.10 7.1), always explicit VR little endian: reads the elements of group 0002 that stand
    /// next in the buffer; writes those of a data set that has at least (0002,0001), the group length in front.
    int ParseMetaInformation(Buffer& buffer, DICOMObject* target);
    int EncodeMetaInformation(Buffer& buffer, const DICOMObject& dataSet);

    DcmDictionary* GetDictionary() const { return m_pDictionary; }

    /// Whether the last parse ended in front of pixel data, and the length that stood there (0xFFFFFFFF: encapsulated).
    bool HasStopped() const { return m_Stopped.has_value(); }
    std::uint32_t GetStoppedLength() const { return m_Stopped.value_or(0); }

    /// Whether the last parse found nothing amiss that its result leaves out: the stream did not end, nor a part of known
    /// length, inside an item or a sequence of undefined length, and every item belonged to a sequence. An item behind an
    /// element that has a value is dropped.
    bool WasWhole() const { return m_bWhole; }

    /// Whether the last parse failed for want of memory, and not for what stands in the stream.
    bool WasMemoryShort() const { return m_bMemoryShort; }

private:
    int Parse(Buffer& buffer, DICOMObject* target, int depth, bool explicitVR);
    template <class Work>
    int RunParse(Work&& work);

    int Encode(Buffer& buffer, DICOMObject* dataSet, int depth, bool explicitVR);
    int EncodeElement(Buffer& buffer, VR& element, int depth, bool explicitVR);
    int EncodeItems(Buffer& buffer, const VR& element, int depth, bool explicitVR);
    bool IsLeftOut(VR& element, bool explicitVR);
    bool CompleteType(VR& element);

    DcmDictionary* m_pDictionary;
    int m_Option = kParseAll;          // what `ParseStream` was told, while it runs
    DataSetParse* m_pParse = nullptr;  // the parse that is going on
    std::optional<std::uint32_t> m_Stopped;
    bool m_bWhole = true;
    bool m_bMemoryShort = false;
    bool m_bSignedPixels = false;  // encoding: (0028,0103) of the data set at hand decides what is "US or SS"
};
