#include "NewUid.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>

std::string NewUid() {
    std::random_device source;
    for (;;) {
        std::array<std::uint32_t, 4> words;
        for (std::uint32_t& word : words) word = static_cast<std::uint32_t>(source());
        std::string digits;
        while (std::any_of(words.begin(), words.end(), [](std::uint32_t word) { return word != 0; })) {
            std::uint64_t rest = 0;
            for (std::uint32_t& word : words) {
                rest = rest << 32 | word;
                word = static_cast<std::uint32_t>(rest / 10);
                rest %= 10;
            }
            digits.insert(digits.begin(), static_cast<char>('0' + rest));
        }
        std::string uid = "2.25." + digits;
        if (uid.size() % 2 == 0 && !digits.empty()) return uid;
    }
}
