// One parse of a data set by a codec: what it has to remember from element to element. Internal to the codec.
#pragma once

#include "ElementHeader.h"
#include "TransferSyntaxCodec.h"
#include "ValueLeaver.h"

#include <cstdint>
#include <memory>
#include <optional>

/// Parses the elements of a level; for what is nested it calls the codec's virtual operations, which come back here.
class DataSetParse {
public:
    /// One nesting level: where it is read from and goes to, and how it is encoded.
    struct Level {
        Buffer& buffer;
        DICOMObject& target;
        int depth;
        bool isExplicit;
    };

    static constexpr int kDeepest = 2 * 256;  // a sequence and its item are two levels

    DataSetParse(TransferSyntaxCodec& codec, int option);

    /// All that a codec's parse operation does at a level. 1 or 0.
    int ParseLevel(const Level& level);

    /// The elements of group 0002 that stand next. 1 or 0.
    int ParseMetaInformation(const Level& level);

    /// Once all is read: (0028,0103) decides what is "US or SS", wherever in the stream it stood (PS3.6).
    void DecideSigns(DICOMObject& target) const;

    /// The length that stood at the pixel data in front of which the parse ended; nothing when it did not.
    std::optional<std::uint32_t> GetStoppedLength() const { return m_Stopped; }

    /// See `TransferSyntaxCodec::WasWhole`.
    bool IsWhole() const { return m_bWhole; }

private:
    enum class Outcome { GoOn, LevelEnds, Failed };

    int ParseNested(const Level& level, DICOMObject& target, bool isExplicit, bool delimited);
    int ParseWindow(const Level& level, DICOMObject& target, std::uint32_t length);
    bool MayParsePlain(const Level& level) const;
    bool ParsePlain(const Level& level, std::uint16_t firstGroup, std::uint16_t lastGroup);
    Outcome ParseElement(const Level& level, const ElementHeader& header, std::uint32_t offset);
    Outcome ParseDelimiter(const Level& level, std::uint16_t element, std::uint32_t length);
    Outcome ParseItem(const Level& level, std::uint32_t length);
    Outcome ParseSequence(const Level& level, VR* begun, std::uint32_t length);
    Outcome ParseUndefinedLength(const Level& level, VR* begun);
    Outcome ParseValue(const Level& level, VR* begun, const ElementHeader& header, bool traced);
    void CompleteType(VR& element);

    TransferSyntaxCodec& m_Codec;
    ValueLeaver* m_pLeaver;  // the codec too; null where it is none
    int m_Option;
    bool m_bTracing;
    bool m_bSigned = false;     // what (0028,0103) at the top said so far
    bool m_bAnySigned = false;  // whether a (0028,0103) said so, at any level
    bool m_bAnyUs = false;      // whether the dictionary made an element US: it may have to be SS
    bool m_bDelimited = false;  // whether the level that begins must be ended by a delimiter
    bool m_bWhole = true;
    std::optional<std::uint32_t> m_Stopped;
};
