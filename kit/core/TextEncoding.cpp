#include "TextEncoding.h"

#include "platform/TextConversion.h"

#include <algorithm>
#include <cstddef>

namespace korvane {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

void AppendEscaped(std::string& out, unsigned char byte) {
    out += "\\x";
    out += kHexDigits[byte >> 4];
    out += kHexDigits[byte & 15];
}

// Bytes of the well-formed UTF-8 sequence that the text begins with (Unicode table 3-7); 0 when there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto follows = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80U; };
    const unsigned lead = at(0);
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return follows(1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool overlong = lead == 0xE0 && at(1) < 0xA0;
        const bool surrogate = lead == 0xED && at(1) > 0x9F;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool overlong = lead == 0xF0 && at(1) < 0x90;
        const bool beyond = lead == 0xF4 && at(1) > 0x8F;
        return follows(1) && follows(2) && follows(3) && !overlong && !beyond ? 4 : 0;
    }
    return 0;
}

// Calls `take(sequence)` for each well-formed sequence and `escape(byte)` for each byte that is in none.
template <class Take, class Escape>
void WalkUtf8(std::string_view text, Take take, Escape escape) {
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length == 0) {
            escape(static_cast<unsigned char>(text.front()));
            text.remove_prefix(1);
        } else {
            take(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
}

bool IsControl(std::string_view sequence) {
    const auto first = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

void AppendControl(std::string& out, std::string_view sequence) {
    switch (sequence[0]) {
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
        for (const char byte : sequence) AppendEscaped(out, static_cast<unsigned char>(byte));
    }
}

}  // namespace

std::string Visible(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    WalkUtf8(
        text,
        [&](std::string_view sequence) {
            if (IsControl(sequence)) {
                AppendControl(out, sequence);
            } else {
                out += sequence;
            }
        },
        [&](unsigned char byte) { AppendEscaped(out, byte); });
    return out;
}

// A character set of (0008,0005). `escapeLow` and `escapeHigh` are the sequences, without the escape character itself,
// that call it into the lower or the upper half of the code table.
struct CodedSet {
    enum class Kind { Ascii, Single, Katakana, Romaji, Pairs, Utf8, Whole };

    const char* terms;  ///< letters and digits of its defined terms, between bars
    Kind kind;
    platform::TextCode code;
    const char* escapeLow;
    const char* escapeHigh;
};

namespace {

using platform::TextCode;
using Kind = CodedSet::Kind;

constexpr char kEscape = '\x1B';

constexpr CodedSet kAscii = {"|ISOIR6|ISO2022IR6|", Kind::Ascii, TextCode::Iso8859_1, "(B", nullptr};
constexpr CodedSet kRomaji = {"|ISOIR14|", Kind::Romaji, TextCode::Iso8859_1, "(J", nullptr};
constexpr CodedSet kSets[] = {
    kAscii,
    kRomaji,
    {"|ISOIR100|ISO2022IR100|LATIN1|ISO88591|", Kind::Single, TextCode::Iso8859_1, nullptr, "-A"},
    {"|ISOIR101|ISO2022IR101|", Kind::Single, TextCode::Iso8859_2, nullptr, "-B"},
    {"|ISOIR109|ISO2022IR109|", Kind::Single, TextCode::Iso8859_3, nullptr, "-C"},
    {"|ISOIR110|ISO2022IR110|", Kind::Single, TextCode::Iso8859_4, nullptr, "-D"},
    {"|ISOIR144|ISO2022IR144|", Kind::Single, TextCode::Iso8859_5, nullptr, "-L"},
    {"|ISOIR127|ISO2022IR127|", Kind::Single, TextCode::Iso8859_6, nullptr, "-G"},
    {"|ISOIR126|ISO2022IR126|", Kind::Single, TextCode::Iso8859_7, nullptr, "-F"},
    {"|ISOIR138|ISO2022IR138|", Kind::Single, TextCode::Iso8859_8, nullptr, "-H"},
    {"|ISOIR148|ISO2022IR148|", Kind::Single, TextCode::Iso8859_9, nullptr, "-M"},
    {"|ISOIR203|ISO2022IR203|", Kind::Single, TextCode::Iso8859_15, nullptr, "-b"},
    {"|ISOIR166|ISO2022IR166|", Kind::Single, TextCode::Tis620, nullptr, "-T"},
    {"|ISOIR13|ISO2022IR13|", Kind::Katakana, TextCode::Iso8859_1, nullptr, ")I"},
    {"|ISOIR87|ISO2022IR87|", Kind::Pairs, TextCode::JisX0208, "$B", nullptr},
    {"|ISOIR159|ISO2022IR159|", Kind::Pairs, TextCode::JisX0212, "$(D", nullptr},
    {"|ISOIR149|ISO2022IR149|", Kind::Pairs, TextCode::KsX1001, nullptr, "$)C"},
    {"|ISOIR58|ISO2022IR58|", Kind::Pairs, TextCode::Gb2312, nullptr, "$)A"},
    {"|ISOIR192|UTF8|", Kind::Utf8, TextCode::Iso8859_1, nullptr, nullptr},
    {"|GB18030|", Kind::Whole, TextCode::Gb18030, nullptr, nullptr},
    {"|GBK|", Kind::Whole, TextCode::Gbk, nullptr, nullptr},
};

const CodedSet* FindSet(std::string_view term) {
    std::string letters = "|";
    for (const char letter : term) {
        if (letter >= 'a' && letter <= 'z') letters += static_cast<char>(letter - 'a' + 'A');
        if ((letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9')) letters += letter;
    }
    letters += '|';
    if (letters == "||") return &kAscii;
    for (const CodedSet& set : kSets) {
        if (std::string_view(set.terms).find(letters) != std::string_view::npos) return &set;
    }
    return nullptr;
}

// The set that an escape sequence calls, and whether into the upper half; null where the text begins with none.
const CodedSet* FindEscape(std::string_view text, std::size_t& length, bool& high) {
    for (const CodedSet& set : kSets) {
        for (const char* const escape : {set.escapeLow, set.escapeHigh}) {
            if (escape == nullptr || text.substr(1, std::string_view(escape).size()) != escape) continue;
            length = 1 + std::string_view(escape).size();
            high = escape == set.escapeHigh;
            return &set;
        }
    }
    return nullptr;
}

// Whether an escape sequence calls a set that nobody here knows: what follows is not what it looks like.
bool CallsUnknownSet(std::string_view text) {
    return text.size() > 1 && text[0] == kEscape && text[1] >= '$' && text[1] <= '/';
}

bool IsDelimiter(char character, TextForm form) {
    if (form == TextForm::Name && (character == '^' || character == '=')) return true;
    return character == '\\' || character == '\n' || character == '\r' || character == '\f' || character == '\t';
}

bool IsHigh(char character) {
    return (static_cast<unsigned char>(character) & 0x80U) != 0;
}

// Whether the text begins with a character of a two-byte set, both bytes being in the given half of the code table.
bool IsPair(std::string_view text, bool high) {
    if (text.size() < 2) return false;
    const unsigned low = high ? 0xA1 : 0x21;
    const auto belongs = [&](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return value >= low && value <= low + 0x5D;
    };
    return belongs(text[0]) && belongs(text[1]);
}

std::size_t CountRun(std::string_view text, const CodedSet& set, bool high) {
    std::size_t length = 0;
    if (set.kind == Kind::Pairs) {
        while (IsPair(text.substr(length), high)) length += 2;
    } else {
        while (length < text.size() && IsHigh(text[length])) ++length;
    }
    return length;
}

// Appends what stands for bytes that are no characters, byte by byte.
void AppendUndecoded(std::string& out, std::string_view bytes, Undecoded undecoded) {
    for (const char byte : bytes) {
        if (undecoded == Undecoded::Escape) {
            AppendEscaped(out, static_cast<unsigned char>(byte));
        } else {
            out += "\xEF\xBF\xBD";
        }
    }
}

// Appends katakana of JIS X 0201, which stand in Unicode in the same order, one behind the other. Returns the number of
// bytes that are none.
std::size_t AppendKatakana(std::string_view run, Undecoded undecoded, std::string& out) {
    std::size_t faults = 0;
    for (std::size_t i = 0; i < run.size(); ++i) {
        const auto byte = static_cast<unsigned char>(run[i]);
        if (byte < 0xA1 || byte > 0xDF) {
            AppendUndecoded(out, run.substr(i, 1), undecoded);
            ++faults;
            continue;
        }
        const unsigned code = 0xFF61U + (byte - 0xA1U);
        out += '\xEF';
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
    return faults;
}

// The number of bytes of the character that a text begins with.
std::size_t CharacterLength(const CodedSet& set, std::string_view text) {
    if (set.kind != Kind::Whole) return set.kind == Kind::Pairs ? 2 : 1;
    const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    if (at(0) < 0x81) return 1;
    if (at(1) >= 0x30 && at(1) <= 0x39 && text.size() >= 4) return 4;
    return at(1) >= 0x40 ? 2 : 1;
}

// Appends a run of characters of one set: as a whole, or character by character where the system cannot convert the
// whole. Returns the number of bytes that are no characters.
std::size_t AppendRun(const CodedSet& set, std::string_view run, Undecoded undecoded, std::string& out) {
    if (set.kind == Kind::Katakana) return AppendKatakana(run, undecoded, out);
    platform::TextConverter converter(set.code);
    if (converter.AppendUtf8(run, out)) return 0;
    std::size_t faults = 0;
    while (!run.empty()) {
        std::size_t length = std::min(CharacterLength(set, run), run.size());
        if (!converter.AppendUtf8(run.substr(0, length), out)) {
            if (set.kind == Kind::Whole) length = 1;
            AppendUndecoded(out, run.substr(0, length), undecoded);
            faults += length;
        }
        run.remove_prefix(length);
    }
    return faults;
}

std::string_view WithoutFill(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
    return text;
}

}  // namespace

TextDecoder::TextDecoder(std::string_view characterSet) {
    characterSet = WithoutFill(characterSet);
    for (bool isFirst = true;; isFirst = false) {
        const std::size_t end = std::min(characterSet.find('\\'), characterSet.size());
        const CodedSet* const set = FindSet(characterSet.substr(0, end));
        m_bKnown = m_bKnown && set != nullptr;
        if (set != nullptr && set->kind != Kind::Ascii) {
            m_Sets.push_back(set);
            m_bBeginsAscii = m_bBeginsAscii && !isFirst;
        }
        if (end == characterSet.size()) break;
        characterSet.remove_prefix(end + 1);
    }
}

TextDecoder::State TextDecoder::Begin() const {
    if (m_bBeginsAscii) return {&kAscii, nullptr};
    const CodedSet* const first = m_Sets.front();
    if (first->kind == Kind::Katakana) return {&kRomaji, first};
    return first->escapeHigh != nullptr ? State{&kAscii, first} : State{first, nullptr};
}

// The number of bytes that are no characters.
std::size_t TextDecoder::Decode(std::string_view bytes, TextForm form, Undecoded undecoded, std::string& out) const {
    const bool isPlain = std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (isPlain && (m_bBeginsAscii || m_Sets.front()->kind == Kind::Utf8)) {
        out += bytes;
        return 0;
    }
    out.reserve(out.size() + bytes.size());
    std::size_t faults = 0;
    if (!m_bBeginsAscii && m_Sets.front()->kind == Kind::Utf8) {
        WalkUtf8(
            bytes, [&](std::string_view sequence) { out += sequence; },
            [&](unsigned char byte) {
                const char character = static_cast<char>(byte);
                AppendUndecoded(out, {&character, 1}, undecoded);
                ++faults;
            });
        return faults;
    }
    if (!m_bBeginsAscii && m_Sets.front()->kind == Kind::Whole) {
        return AppendRun(*m_Sets.front(), bytes, undecoded, out);
    }
    State state = Begin();
    while (!bytes.empty()) {
        const char next = bytes.front();
        std::size_t length = 1;
        bool high = false;
        const CodedSet* const called = next == kEscape ? FindEscape(bytes, length, high) : nullptr;
        if (called != nullptr) {
            (high ? state.high : state.low) = called;
        } else if (const CodedSet* const set = IsHigh(next) ? state.high : state.low;
                   set != nullptr && (IsHigh(next) || set->kind == Kind::Pairs) &&
                   (length = CountRun(bytes, *set, IsHigh(next))) > 0) {
            faults += AppendRun(*set, bytes.substr(0, length), undecoded, out);
        } else if (IsHigh(next) || CallsUnknownSet(bytes)) {
            length = 1;
            AppendUndecoded(out, bytes.substr(0, 1), undecoded);
            ++faults;
        } else {
            length = 1;
            out += next;
            if (IsDelimiter(next, form)) state = Begin();
        }
        bytes.remove_prefix(length);
    }
    return faults;
}

std::string TextDecoder::ToUtf8(std::string_view bytes, TextForm form, Undecoded undecoded) const {
    std::string out;
    Decode(bytes, form, undecoded, out);
    return out;
}

bool TextDecoder::Decodes(std::string_view bytes, TextForm form) const {
    std::string out;
    return Decode(bytes, form, Undecoded::Replace, out) == 0;
}

std::optional<std::string> TextDecoder::FromUtf8(std::string_view text) const {
    if (std::all_of(text.begin(), text.end(), [](char c) { return !IsHigh(c) && c != kEscape; }))
        return std::string(text);
    if (m_Sets.empty()) return std::nullopt;
    if (m_Sets.front()->kind == Kind::Utf8 && !m_bBeginsAscii) return std::string(text);
    std::string bytes;
    if (m_Sets.front()->kind == Kind::Whole && !m_bBeginsAscii) {
        if (!platform::AppendFromUtf8(m_Sets.front()->code, text, bytes)) return std::nullopt;
        return bytes;
    }
    bool possible = true;
    std::size_t run = 0;  // bytes of a run of characters outside ASCII, which is encoded in one set
    for (std::size_t at = 0; possible && at < text.size(); at += run) {
        for (run = 0; at + run < text.size() && IsHigh(text[at + run]);) ++run;
        if (run == 0) {
            if (text[at] == kEscape) return std::nullopt;  // the reader would take it for one of its sequences
            bytes += text[at];
            run = 1;
        } else {
            possible = EncodeRun(text.substr(at, run), bytes);
        }
    }
    if (!possible) return std::nullopt;
    return bytes;
}

// Appends a run in the first of the sets that has all of its characters, then the escape sequence back to the set that
// is in force where a value begins. False when no set has all of them.
bool TextDecoder::EncodeRun(std::string_view run, std::string& bytes) const {
    for (const CodedSet* const set : m_Sets) {
        std::string encoded;
        if (set->kind == Kind::Katakana || !platform::AppendFromUtf8(set->code, run, encoded)) continue;
        const bool isHigh = set->escapeHigh != nullptr;
        const bool called = set != m_Sets.front() || m_bBeginsAscii || set->kind == Kind::Pairs;
        if (called) bytes.append(1, kEscape).append(isHigh ? set->escapeHigh : set->escapeLow);
        for (const char byte : encoded) bytes += isHigh ? static_cast<char>(byte | 0x80) : byte;
        if (called && !isHigh) bytes.append(1, kEscape).append(kAscii.escapeLow);
        if (called && isHigh && !m_bBeginsAscii) bytes.append(1, kEscape).append(m_Sets.front()->escapeHigh);
        return true;
    }
    return false;
}

}  // namespace korvane
