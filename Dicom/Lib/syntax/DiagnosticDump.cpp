#include "DiagnosticDump.h"

#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/DcmDictionary.h"
#include "TransferSyntaxCodec.h"
#include "platform/Environment.h"
#include "platform/File.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <mutex>

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
    std::atomic<std::uint32_t> flags = FlagsFromEnvironment();
    std::mutex mutex;  // of the path, and of the log for as long as one call writes
    std::string path = platform::GetEnvironment("DCM_DUMP_PATH");
};

State& GetState() {
    static State state;
    return state;
}

std::string LogName(const State& state) {
    return state.path.empty() ? "DcmServiceDump.log" : state.path;
}

/// The open log, this thread's alone until it goes: lines of several threads do not mix. Null when the level is off.
class Log {
public:
    explicit Log(std::uint32_t level) {
        if (!IsDebugFlagOn(level)) return;
        State& state = GetState();
        m_Lock = std::unique_lock(state.mutex);
        m_pFile = platform::OpenFile(LogName(state).c_str(), "at");
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log() {
        if (m_pFile != nullptr) std::fclose(m_pFile);
    }

    std::FILE* Get() const { return m_pFile; }

private:
    std::unique_lock<std::mutex> m_Lock;
    std::FILE* m_pFile = nullptr;
};

std::string DumpedValue(const VR& element) {
    switch (GetValueKind(element.m_TypeCode)) {
    case ValueKind::Text: return "|" + Printable(ValueText(element)) + "|";
    case ValueKind::Binary: return ValueText(element, 0, kBinaryBytesShown);
    default: return ValueText(element);
    }
}

}  // namespace

void SetDebugFlag(std::uint32_t bits, bool on) {
    if (on) {
        GetState().flags.fetch_or(bits, std::memory_order_relaxed);
    } else {
        GetState().flags.fetch_and(~bits, std::memory_order_relaxed);
    }
}

bool IsDebugFlagOn(std::uint32_t bits) {
    return (GetState().flags.load(std::memory_order_relaxed) & bits) != 0;
}

std::string DumpLogName() {
    State& state = GetState();
    const std::lock_guard lock(state.mutex);
    return LogName(state);
}

void SetDumpLogPath(const std::string& path) {
    State& state = GetState();
    const std::lock_guard lock(state.mutex);
    state.path = path;
}

void TraceStamped(const char* text, std::uint32_t level) {
    const Log log(level);
    if (log.Get() != nullptr) std::fprintf(log.Get(), "%s : %s\n", platform::LocalTimeText().c_str(), text);
}

void Trace(std::uint32_t level, const char* format, ...) {
    const Log log(level);
    if (log.Get() == nullptr) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(log.Get(), format, arguments);
    va_end(arguments);
}

void HexDump(const void* bytes, int count, std::uint32_t level) {
    const Log log(level);
    if (log.Get() == nullptr) return;
    const auto* const first = static_cast<const unsigned char*>(bytes);
    for (int begin = 0; begin < count; begin += std::min(kBytesPerLine, count - begin)) {
        const int length = std::min(kBytesPerLine, count - begin);
        std::fprintf(log.Get(), "%6.6d-%6.6d ", begin, begin + length - 1);
        for (int i = 0; i < length; ++i) std::fprintf(log.Get(), "%2.2X ", static_cast<unsigned>(first[begin + i]));
        for (int i = length; i < kBytesPerLine; ++i) std::fputs("   ", log.Get());
        const std::string characters =
            Printable({reinterpret_cast<const char*>(first) + begin, static_cast<std::size_t>(length)});
        std::fprintf(log.Get(), "| %s|\n", characters.c_str());
    }
}

void DumpElement(std::uint32_t level, const VR& element, const TransferSyntaxCodec* codec) {
    const Log log(level);
    if (log.Get() == nullptr) return;
    std::fprintf(log.Get(), "(%4.4X)[%4.4X,%4.4X][%6d]", static_cast<unsigned>(element.m_StreamOffset),
                 static_cast<unsigned>(element.m_Group), static_cast<unsigned>(element.m_Element),
                 static_cast<int>(element.m_Length));
    if (element.m_TypeCode != 0) {
        char firstLetter;
        char secondLetter;
        UnpackTypeCode(element.m_TypeCode, firstLetter, secondLetter);
        std::fprintf(log.Get(), "[%s]:", Printable(std::string{firstLetter, secondLetter}).c_str());
    } else {
        std::fputs("[XX]:", log.Get());
    }
    std::string name;
    const DcmDictionary* const dictionary = codec != nullptr ? codec->GetDictionary() : nullptr;
    if (dictionary != nullptr && dictionary->LookupTypeCode(element.m_Group, element.m_Element, &name) != 0) {
        std::fprintf(log.Get(), "'%s' ", name.c_str());
    }
    std::fprintf(log.Get(), "%s\n", DumpedValue(element).c_str());
}
