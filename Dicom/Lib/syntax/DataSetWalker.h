// Follows the structure of a data set as its bytes go by, without holding them.
#pragma once

#include "../dictionary/Tags.generated.h"
#include "ElementHeader.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Walks over the elements of a data set (PS3.5 7) that comes in pieces of any size: whether it is well formed and whole,
/// and what its SOP class and instance are. Values are skipped, but for those two.
///
/// Sequences nest at most 256 deep.
class DataSetWalker {
public:
    /// `syntax`: see `TransferSyntaxNumber`.
    explicit DataSetWalker(int syntax);

    /// The next piece. False once the structure is broken; further pieces are then ignored.
    bool Feed(const void* bytes, std::size_t count);

    /// Bytes of a value that come next, and passing over them unseen, for streams that can skip.
    std::uint32_t GetSkippable() const { return m_pKept == nullptr ? m_Skip : 0; }
    void PassOver() { m_Skip -= GetSkippable(); }

    /// Whether what came so far is a whole data set, with at least one element.
    bool IsWhole() const;
    bool IsBroken() const { return m_bBroken; }

    /// (0008,0016) and (0008,0018), trimmed; empty until they came.
    const std::string& GetSopClass() const { return m_SopClass; }
    const std::string& GetSopInstance() const { return m_SopInstance; }
    /// Whether an element behind (0008,0018) has been seen: neither can come any more.
    bool IsPastIdentity() const { return m_LargestTag > tags::SOPInstanceUID; }

private:
    /// What is being walked over: elements; what lies in a sequence or in pixel data of undefined length.
    enum class Level : std::uint8_t { Explicit, Implicit, ExplicitItems, ImplicitItems, Fragments };

    std::size_t GetHeaderBytes() const;
    ElementHeaderReader GetReader() const;
    bool TakeHeader();
    bool TakeDelimiter(const ElementHeader& header);
    bool TakeElement(const ElementHeader& header);
    void KeepIfIdentity(tags::Tag tag, std::uint32_t length);

    std::vector<Level> m_Levels;
    bool m_bBig;
    bool m_bBroken = false;
    bool m_bAny = false;
    unsigned char m_Header[ElementHeaderReader::kLongest] = {};
    std::size_t m_HeaderUsed = 0;
    std::uint32_t m_Skip = 0;        // of the value at hand
    std::string* m_pKept = nullptr;  // where its bytes go
    tags::Tag m_LargestTag{};
    std::string m_SopClass;
    std::string m_SopInstance;
};
