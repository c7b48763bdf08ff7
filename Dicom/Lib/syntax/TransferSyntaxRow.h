// The transfer syntaxes that the library names or handles (PS3.6 annex A, PS3.5 section 10), one constant row each.
// Whatever else is said of a transfer syntax is read from here: the table that codecs are entered in
// (TransferSyntaxTable.h), names in messages, words of command lines, marks of lossy compression. A UID without a row
// may still be valid: codec modules bring syntaxes of their own, and all those that the library does not know are taken
// for encapsulated pixel data in explicit VR little endian.
#pragma once

#include <string_view>

/// How the elements of a data set are encoded (PS3.5 annex A.1 to A.3).
enum TransferSyntaxNumber : int { kImplicitLittleEndian = 100, kExplicitLittleEndian = 101, kExplicitBigEndian = 102 };

// The UIDs that code asks for by name; others are in their rows alone.
inline constexpr std::string_view kImplicitLittleEndianUid = "1.2.840.10008.1.2";
inline constexpr std::string_view kExplicitLittleEndianUid = "1.2.840.10008.1.2.1";
inline constexpr std::string_view kExplicitBigEndianUid = "1.2.840.10008.1.2.2";
inline constexpr std::string_view kDeflatedUid = "1.2.840.10008.1.2.1.99";
inline constexpr std::string_view kRleUid = "1.2.840.10008.1.2.5";
inline constexpr std::string_view kLosslessJpegUid = "1.2.840.10008.1.2.4.70";

struct TransferSyntaxRow {
    std::string_view uid;
    std::string_view name;        ///< in English, for messages; "" for those shown by their UID alone
    std::string_view word;        ///< on command lines; "" for those that nothing is written in
    TransferSyntaxNumber number;  ///< of the elements, once inflated
    bool isEncapsulated = false;  ///< pixel data lies in fragments (PS3.5 annex A.4)
    bool isDeflated = false;      ///< what follows the meta information is deflated (PS3.5 annex A.5)
    /// What (0028,2114) says when a codec tells that it has lost something in this syntax (PS3.3 C.7.6.1.1.5.1); some
    /// lossless syntaxes have one, for codecs come from other makers too. "": ISO_10918_1 is written then.
    std::string_view lossyMethod = {};
    bool isLossy = false;  ///< the syntax lets coding change values (PS3.5 A.4); whether it did, its pixels do not tell
};

namespace syntaxes {

constexpr TransferSyntaxRow Compressed(std::string_view uid, std::string_view name, std::string_view lossyMethod,
                                       std::string_view word = {}) {
    return {uid, name, word, kExplicitLittleEndian, true, false, lossyMethod, false};
}

constexpr TransferSyntaxRow Lossy(std::string_view uid, std::string_view name, std::string_view lossyMethod) {
    return {uid, name, {}, kExplicitLittleEndian, true, false, lossyMethod, true};
}

/// Defined terms of Lossy Image Compression Method (PS3.3 C.7.6.1.1.5.1).
inline constexpr std::string_view kJpeg = "ISO_10918_1";
inline constexpr std::string_view kJpegLs = "ISO_14495_1";
inline constexpr std::string_view kJpeg2000 = "ISO_15444_1";
inline constexpr std::string_view kHighThroughputJpeg2000 = "ISO_15444_15";
inline constexpr std::string_view kMpeg2 = "ISO_13818_2";
inline constexpr std::string_view kMpeg4 = "ISO_14496_10";

/// The first 22 are those of the stated table, in its order; `TransferSyntaxTable` is made of them.
inline constexpr TransferSyntaxRow kTransferSyntaxes[] = {
    {kImplicitLittleEndianUid, "Implicit VR Little Endian", "implicit", kImplicitLittleEndian},
    {kExplicitLittleEndianUid, "Explicit VR Little Endian", "explicit", kExplicitLittleEndian},
    {kExplicitBigEndianUid, "Explicit VR Big Endian", "big", kExplicitBigEndian},
    Compressed(kRleUid, "RLE Lossless", {}, "rle"),
    Lossy("1.2.840.10008.1.2.4.50", "JPEG Baseline (Process 1)", kJpeg),
    Lossy("1.2.840.10008.1.2.4.51", "JPEG Extended (Process 2 and 4)", kJpeg),
    Lossy("1.2.840.10008.1.2.4.52", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.53", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.54", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.55", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.56", {}, kJpeg),
    Compressed("1.2.840.10008.1.2.4.57", "JPEG Lossless (Process 14)", {}),
    Compressed("1.2.840.10008.1.2.4.58", {}, {}),
    Lossy("1.2.840.10008.1.2.4.59", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.60", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.61", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.62", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.63", {}, kJpeg),
    Lossy("1.2.840.10008.1.2.4.64", {}, kJpeg),
    Compressed("1.2.840.10008.1.2.4.65", {}, {}),
    Compressed("1.2.840.10008.1.2.4.66", {}, {}),
    Compressed(kLosslessJpegUid, "JPEG Lossless (Process 14, first-order prediction)", {}, "jpegll"),
    {kDeflatedUid, "Deflated Explicit VR Little Endian", {}, kExplicitLittleEndian, false, true},
    Compressed("1.2.840.10008.1.2.4.80", "JPEG-LS Lossless", kJpegLs),
    Lossy("1.2.840.10008.1.2.4.81", "JPEG-LS Near-lossless", kJpegLs),
    Compressed("1.2.840.10008.1.2.4.90", "JPEG 2000 (lossless only)", kJpeg2000),
    Lossy("1.2.840.10008.1.2.4.91", "JPEG 2000", kJpeg2000),
    Compressed("1.2.840.10008.1.2.4.92", {}, kJpeg2000),
    Lossy("1.2.840.10008.1.2.4.93", {}, kJpeg2000),
    Lossy("1.2.840.10008.1.2.4.100", "MPEG2 Main Profile", kMpeg2),
    Lossy("1.2.840.10008.1.2.4.102", "MPEG-4 AVC/H.264 High Profile", kMpeg4),
    Lossy("1.2.840.10008.1.2.4.203", {}, kHighThroughputJpeg2000),
};

}  // namespace syntaxes

using syntaxes::kTransferSyntaxes;

/// The row of a UID without padding; null where there is none.
constexpr const TransferSyntaxRow* FindSyntaxRow(std::string_view uid) {
    for (const TransferSyntaxRow& row : kTransferSyntaxes) {
        if (row.uid == uid) return &row;
    }
    return nullptr;
}

/// The row of a command line's word, such as "jpegll"; null where there is none.
constexpr const TransferSyntaxRow* FindSyntaxWord(std::string_view word) {
    for (const TransferSyntaxRow& row : kTransferSyntaxes) {
        if (!word.empty() && row.word == word) return &row;
    }
    return nullptr;
}

/// The UID of the syntax that compresses nothing and has a number; that of explicit little endian for any other number.
constexpr std::string_view NativeSyntaxUid(int number) {
    for (const TransferSyntaxRow& row : kTransferSyntaxes) {
        if (row.number == number && !row.isEncapsulated && !row.isDeflated) return row.uid;
    }
    return kExplicitLittleEndianUid;
}

/// Whether a UID names one of the three syntaxes that compress nothing.
constexpr bool IsNativeTransferSyntax(std::string_view uid) {
    const TransferSyntaxRow* const row = FindSyntaxRow(uid);
    return row != nullptr && !row->isEncapsulated && !row->isDeflated;
}

/// Whether a UID names a syntax whose data sets have to be inflated before an element can be read.
constexpr bool IsDeflatedTransferSyntax(std::string_view uid) {
    const TransferSyntaxRow* const row = FindSyntaxRow(uid);
    return row != nullptr && row->isDeflated;
}

/// Whether a UID names a syntax in which values may differ from those that were coded (PS3.5 A.4). False for a UID
/// without a row.
constexpr bool IsLossyTransferSyntax(std::string_view uid) {
    const TransferSyntaxRow* const row = FindSyntaxRow(uid);
    return row != nullptr && row->isLossy;
}
