#include "DiagnosticDump.h"

#include "Dicom/Lib/dictionary/DcmDictionary.h"
#include "TransferSyntaxCodec.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "platform/Environment.h"
#include "platform/File.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <memory>

namespace {

constexpr int kBytesPerLine = 32;
constexpr std::size_t kBinaryBytesShown = 32;

std::uint32_t FlagsFromEnvironment() {
    const std::string text = platform::GetEnvironment("DCM_DUMP_FLAGS");
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    std::uint32_t flags = 0;
    std::from_chars(text.data() + (hex ? 2 : 0), text.data() + text.size(), flags, hex ? 16 : 10);
    return flags;
}

struct State {
    std::uint32_t flags = FlagsFromEnvironment();
    std::string path = platform::GetEnvironment("DCM_DUMP_PATH");
};

State& GetState() {
    static State state;
    return state;
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using Log = std::unique_ptr<std::FILE, CloseFile>;

Log OpenLog(std::uint32_t level) {
    if (!IsDebugFlagOn(level)) return nullptr;
    return Log(platform::OpenFile(DumpLogName().c_str(), "at"));
}

std::string DumpedValue(const VR& element) {
    switch (GetValueKind(element.m_TypeCode)) {
    case ValueKind::Text: return "|" + Printable(ValueText(element)) + "|";
    case ValueKind::Binary: return ValueText(element, 0, kBinaryBytesShown);
    default: return ValueText(element);
    }
}

}  // namespace

void SetDebugFlag(std::uint32_t bits, bool on) {
    std::uint32_t& flags = GetState().flags;
    flags = on ? flags | bits : flags & ~bits;
}

bool IsDebugFlagOn(std::uint32_t bits) {
    return (GetState().flags & bits) != 0;
}

std::string DumpLogName() {
    const std::string& path = GetState().path;
    return path.empty() ? "DcmServiceDump.log" : path;
}

void SetDumpLogPath(const std::string& path) {
    GetState().path = path;
}

void TraceStamped(const char* text, std::uint32_t level) {
    const Log log = OpenLog(level);
    if (log != nullptr) std::fprintf(log.get(), "%s : %s\n", platform::LocalTimeText().c_str(), text);
}

void Trace(std::uint32_t level, const char* format, ...) {
    const Log log = OpenLog(level);
    if (log == nullptr) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(log.get(), format, arguments);
    va_end(arguments);
}

void HexDump(const void* bytes, int count, std::uint32_t level) {
    const Log log = OpenLog(level);
    if (log == nullptr) return;
    const auto* const first = static_cast<const unsigned char*>(bytes);
    for (int begin = 0; begin < count; begin += std::min(kBytesPerLine, count - begin)) {
        const int length = std::min(kBytesPerLine, count - begin);
        std::fprintf(log.get(), "%6.6d-%6.6d ", begin, begin + length - 1);
        for (int i = 0; i < length; ++i) std::fprintf(log.get(), "%2.2X ", static_cast<unsigned>(first[begin + i]));
        for (int i = length; i < kBytesPerLine; ++i) std::fputs("   ", log.get());
        const std::string characters =
            Printable({reinterpret_cast<const char*>(first) + begin, static_cast<std::size_t>(length)});
        std::fprintf(log.get(), "| %s|\n", characters.c_str());
    }
}

void DumpElement(std::uint32_t level, const VR& element, const TransferSyntaxCodec* codec) {
    const Log log = OpenLog(level);
    if (log == nullptr) return;
    std::fprintf(log.get(), "(%4.4X)[%4.4X,%4.4X][%6d]", static_cast<unsigned>(element.m_StreamOffset),
                 static_cast<unsigned>(element.m_Group), static_cast<unsigned>(element.m_Element),
                 static_cast<int>(element.m_Length));
    if (element.m_TypeCode != 0) {
        char firstLetter;
        char secondLetter;
        UnpackTypeCode(element.m_TypeCode, firstLetter, secondLetter);
        std::fprintf(log.get(), "[%s]:", Printable(std::string{firstLetter, secondLetter}).c_str());
    } else {
        std::fputs("[XX]:", log.get());
    }
    std::string name;
    const DcmDictionary* const dictionary = codec != nullptr ? codec->GetDictionary() : nullptr;
    if (dictionary != nullptr && dictionary->LookupTypeCode(element.m_Group, element.m_Element, &name) != 0) {
        std::fprintf(log.get(), "'%s' ", name.c_str());
    }
    std::fprintf(log.get(), "%s\n", DumpedValue(element).c_str());
}
