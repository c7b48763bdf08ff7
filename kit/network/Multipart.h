// Several bodies in one (RFC 2046 5.1), as DICOMweb carries objects and frames (PS3.18 8.6).
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace korvane {

/// Headers of an answer or of a part, by their names in lower case.
using WebHeaders = std::map<std::string, std::string>;

/// The media type of a Content-Type in lower case, without parameters: "multipart/related".
std::string MediaTypeOf(std::string_view contentType);
/// A parameter of a Content-Type, without quotes around it; "" when absent.
std::string ParameterOf(std::string_view contentType, std::string_view name);

/// Takes the parts of a body, each `BeginPart`, any number of `TakeBytes`, `EndPart`. May throw.
class MultipartTaker {
public:
    virtual ~MultipartTaker() = default;
    virtual void BeginPart(const WebHeaders& headers) = 0;
    virtual void TakeBytes(std::string_view bytes) = 0;
    virtual void EndPart() = 0;
};

/// Cuts a body that comes in pieces of any size into its parts, holding a few hundred bytes of them at most. Headers of a
/// part may have 16 KB and 64 lines, what stands in front of the first part 64 KB; what follows the last is passed over.
class MultipartReader {
public:
    /// `taker` must outlive the object. Throws `Error` of kind `Damaged` for a boundary that is none.
    MultipartReader(std::string_view boundary, MultipartTaker& taker);

    /// Throws `Error` of kind `Damaged`, and what the taker throws.
    void Feed(std::string_view bytes);

    /// Whether the end of the last part was marked as such; else the body was cut off.
    bool IsWhole() const { return m_State == State::End; }

private:
    enum class State { Front, Headers, Body, End };

    bool TakeUpToDelimiter(std::string_view& rest);
    bool TakeHeaders(std::string_view& rest);
    void PassOn(std::string_view bytes);

    std::string m_Delimiter;
    MultipartTaker& m_Taker;
    State m_State = State::Front;
    std::string m_Held = "\r\n";  // not looked at yet; a delimiter stands on a line of its own, the first one too
    std::size_t m_Front = 0;      // bytes in front of the first part
};

}  // namespace korvane
