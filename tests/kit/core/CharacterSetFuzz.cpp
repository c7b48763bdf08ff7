// libFuzzer: texts in every character set, code extensions included. What comes out is UTF-8; what decodes and can be
// written again reads the same.
#include <Korvane/kit/core/TextEncoding.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace korvane;

namespace {

constexpr const char* kSets[] = {"",
                                 "ISO_IR 100",
                                 "ISO_IR 144",
                                 "ISO_IR 13",
                                 "ISO_IR 166",
                                 "ISO_IR 192",
                                 "GB18030",
                                 "GBK",
                                 "\\ISO 2022 IR 87",
                                 "ISO 2022 IR 13\\ISO 2022 IR 87\\ISO 2022 IR 159",
                                 "\\ISO 2022 IR 149",
                                 "\\ISO 2022 IR 58",
                                 "ISO 2022 IR 100\\ISO 2022 IR 126\\ISO 2022 IR 127\\ISO 2022 IR 138",
                                 "ISO 2022 IR 6\\ISO 2022 IR 101\\ISO 2022 IR 109\\ISO 2022 IR 110\\ISO 2022 IR 148"};

// Lead bytes, trail bytes, no overlong form, no surrogate.
bool IsUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const std::size_t more = lead < 0x80   ? 0
                                 : lead < 0xC2 ? 9
                                 : lead < 0xE0 ? 1
                                 : lead < 0xF0 ? 2
                                 : lead < 0xF5 ? 3
                                               : 9;
        if (more == 9 || at + more >= text.size()) return false;
        unsigned code = more == 0 ? lead : lead & (0x3FU >> more);
        for (std::size_t i = 1; i <= more; ++i) {
            const auto byte = static_cast<unsigned char>(text[at + i]);
            if ((byte & 0xC0U) != 0x80U) return false;
            code = code << 6 | (byte & 0x3FU);
        }
        constexpr unsigned kLeast[] = {0, 0x80, 0x800, 0x10000};
        if (code < kLeast[more] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return false;
        at += more + 1;
    }
    return true;
}

}  // namespace

// The first byte chooses the set and the form, the others are the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    if (count == 0) return 0;
    const TextForm form = bytes[0] >= 128 ? TextForm::Name : TextForm::Plain;
    const TextDecoder decoder(kSets[bytes[0] % std::size(kSets)]);
    const std::string_view text(reinterpret_cast<const char*>(bytes + 1), count - 1);
    const std::string replaced = decoder.ToUtf8(text, form, Undecoded::Replace);
    const std::string escaped = decoder.ToUtf8(text, form, Undecoded::Escape);
    if (!IsUtf8(replaced) || !IsUtf8(escaped)) std::abort();
    if (!decoder.Decodes(text, form)) return 0;
    if (replaced != escaped) std::abort();
    if (const auto again = decoder.FromUtf8(replaced)) {
        if (!decoder.Decodes(*again, TextForm::Plain) || decoder.ToUtf8(*again, TextForm::Plain) != replaced)
            std::abort();
    }
    return 0;
}
