#include "PixelRows.h"

#include "base/Bytes.h"
#include "base/Integer.h"

#include <algorithm>
#include <limits>

namespace korvane_detail {

namespace {

// The loops track the range of a key that is as wide as a word and grows with the raw value. Sixteen bits are compared
// as signed numbers, which the baseline of x86 can do sixteen bytes at a time and with unsigned ones cannot.
template <class Word>
struct Key;
template <>
struct Key<std::uint8_t> {
    using Type = std::uint8_t;
    static constexpr std::uint32_t kBias = 0;
};
template <>
struct Key<std::uint16_t> {
    using Type = std::int16_t;
    static constexpr std::uint32_t kBias = 0x8000;
};
template <>
struct Key<std::uint32_t> {
    using Type = std::int32_t;
};

// key(word) in, key + offset out. `out` is not touched unless kStore.
template <class Word, bool kStore, class MakeKey>
PixelRange Run(const unsigned char* __restrict words, unsigned char* __restrict out, std::size_t count, Word offset,
               MakeKey makeKey) {
    using KeyType = typename Key<Word>::Type;
    KeyType low = std::numeric_limits<KeyType>::max();
    KeyType high = std::numeric_limits<KeyType>::min();
    for (std::size_t i = 0; i < count; ++i) {
        const Word bits = makeKey(platform::LoadAt<Word>(words, i));
        const auto key = static_cast<KeyType>(bits);
        low = std::min(low, key);
        high = std::max(high, key);
        if constexpr (kStore) {
            platform::StoreAt<Word>(out, i, static_cast<Word>(bits + offset));
        }
    }
    return count != 0 ? PixelRange{low, high} : PixelRange{};
}

template <class Word, bool kStore>
PixelRange RunNarrow(const WordForm& form, const unsigned char* words, unsigned char* out, std::size_t count) {
    constexpr std::uint32_t kBias = Key<Word>::kBias;
    constexpr std::uint32_t kWordMask = std::numeric_limits<Word>::max();
    const bool inRange = form.m_Shift >= 0 && form.m_Shift < static_cast<int>(8 * sizeof(Word));
    const auto shift = inRange ? form.m_Shift : 0;
    const auto mask = static_cast<Word>(inRange ? form.m_Mask : 0);
    const auto flip = static_cast<Word>(form.m_Flip ^ kBias);
    // What lies above the word is the same for all: it goes into the offset of the range.
    const std::uint32_t base = static_cast<std::uint32_t>(form.m_Offset) + (form.m_Flip & ~kWordMask) + kBias;
    const auto offset = static_cast<Word>(base);

    PixelRange keys;
    if (shift == 0) {
        keys = Run<Word, kStore>(words, out, count, offset,
                                 [=](Word word) { return static_cast<Word>((word & mask) ^ flip); });
    } else {
        // word >> shift, as a multiplication: compilers vectorise its high half, a variable shift of words they do not.
        constexpr int kBits = 8 * sizeof(Word);
        const auto factor = static_cast<Word>(1U << (kBits - shift));
        keys = Run<Word, kStore>(words, out, count, offset, [=](Word word) {
            const std::uint32_t product = std::uint32_t{word} * factor;
            return static_cast<Word>((static_cast<Word>(product >> kBits) & mask) ^ flip);
        });
    }
    if (count == 0) {
        return keys;
    }
    const auto toRaw = [=](std::int32_t key) { return platform::WrapAdd(key, static_cast<std::int32_t>(base)); };
    return {toRaw(keys.m_Min), toRaw(keys.m_Max)};
}

template <bool kStore>
PixelRange RunAny(const WordForm& form, const void* words, void* out, std::size_t count) {
    const auto* in = static_cast<const unsigned char*>(words);
    auto* to = static_cast<unsigned char*>(out);
    if (form.m_Size == 4) {
        const auto offset = static_cast<std::uint32_t>(form.m_Offset);
        return Run<std::uint32_t, kStore>(in, to, count, 0, [=](std::uint32_t word) { return word + offset; });
    }
    return form.m_Size == 2 ? RunNarrow<std::uint16_t, kStore>(form, in, to, count)
                            : RunNarrow<std::uint8_t, kStore>(form, in, to, count);
}

}  // namespace

std::int32_t DecodeWord(const WordForm& form, std::uint32_t word) {
    if (form.m_Size == 4) {
        return platform::WrapAdd(static_cast<std::int32_t>(word), form.m_Offset);
    }
    const std::uint32_t shifted = form.m_Shift >= 0 && form.m_Shift < 32 ? word >> form.m_Shift : 0;
    return platform::WrapAdd(static_cast<std::int32_t>((shifted & form.m_Mask) ^ form.m_Flip), form.m_Offset);
}

PixelRange ScanWords(const WordForm& form, const void* words, std::size_t count) {
    return RunAny<false>(form, words, nullptr, count);
}

PixelRange DecodeWords(const WordForm& form, const void* words, void* out, std::size_t count) {
    return RunAny<true>(form, words, out, count);
}

}  // namespace korvane_detail
