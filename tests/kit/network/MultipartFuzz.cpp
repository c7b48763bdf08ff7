// libFuzzer: any bytes as a multipart body, its objects given to a sink. Whatever pieces they come in, the same must come out.
#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/network/Multipart.h>
#include <Korvane/kit/network/Part10Stream.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace korvane;

namespace {

// Notes what was stored, and which object was refused.
class Notes : public StorageSink {
public:
    std::uint16_t Begin(const StorageRequest& request) override {
        said += "begin " + request.sopInstance + '\n';
        return kStatusSuccess;
    }
    std::uint16_t Write(const void* bytes, std::size_t count) override {
        m_Bytes.append(static_cast<const char*>(bytes), count);
        return kStatusSuccess;
    }
    std::uint16_t End() override {
        said += m_Bytes + "\nend\n";
        return kStatusSuccess;
    }
    void Discard() override { m_Bytes.clear(); }
    void Answered(const StorageRequest&, std::uint16_t status, const std::string&) override {
        said += std::to_string(status) + '\n';
    }

    std::string said;

private:
    std::string m_Bytes;
};

class Objects : public MultipartTaker {
public:
    explicit Objects(StorageSink& sink) : m_Stream(sink) {}
    void BeginPart(const WebHeaders& headers) override {
        for (const auto& [name, value] : headers) ParameterOf(value, "boundary");
    }
    void TakeBytes(std::string_view bytes) override { m_Stream.Feed(bytes); }
    void EndPart() override { m_Stream.End(); }

private:
    Part10Stream m_Stream;
};

std::string Read(const std::string& text, std::size_t piece) {
    Notes notes;
    Objects objects(notes);
    try {
        MultipartReader reader("b", objects);
        for (std::size_t at = 0; at < text.size(); at += piece) reader.Feed(std::string_view(text).substr(at, piece));
        notes.said += reader.IsWhole() ? "whole" : "cut";
    } catch (const Error&) {
        return "damaged";  // when it is found may depend on the pieces
    }
    return notes.said;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = (*arguments)[*argumentCount - 1];
    if (!std::filesystem::is_directory(corpus) || !std::filesystem::is_empty(corpus)) return 0;
    const auto element = [](const char* tag, const char* type, const std::string& value) {
        return std::string(tag, 4) + type + static_cast<char>(value.size()) + '\0' + value;
    };
    const std::string meta = element("\x02\0\x02\0", "UI", "1.2.840.10008.5.1.4.1.1.7") +
                             element("\x02\0\x03\0", "UI", "1.2\0") +
                             element("\x02\0\x10\0", "UI", "1.2.840.10008.1.2.1");
    const std::string length = std::string(1, static_cast<char>(meta.size())) + std::string(3, '\0');
    const std::string object = std::string(128, '\0') + "DICM" + element("\x02\0\0\0", "UL", length) + meta +
                               element("\x08\0\x16\0", "UI", "1.2.840.10008.5.1.4.1.1.7") +
                               element("\x08\0\x18\0", "UI", "1.2");
    const std::string cover = "--b\r\nContent-Type: application/dicom\r\n\r\n";
    std::ofstream(corpus + "/two") << "x" << cover << object << "\r\n" << cover << object << "\r\n--b--\r\n";
    std::ofstream(corpus + "/inner") << "--b \t\r\n\r\n\r\n--bc\r\n--b\r\nA: \"b;c=d\"; e=\r\n\r\n--b--";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const std::string text(reinterpret_cast<const char*>(bytes), std::min<std::size_t>(count, 16384));
    const std::string whole = Read(text, text.size() + 1);
    for (const std::size_t piece : {1, 7, 64}) {
        const std::string said = Read(text, piece);
        if (said != whole && said != "damaged" && whole != "damaged") std::abort();
    }
    ParameterOf(text, "boundary");
    return 0;
}
