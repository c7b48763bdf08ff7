#include "PublicDictionary.h"

#include <new>

#include <iterator>

namespace {

constexpr std::uint16_t Code(const char (&letters)[3]) {
    return static_cast<std::uint16_t>(letters[0] << 8 | letters[1]);
}

constexpr DcmDictionaryRow kRows[] = {
#include "PublicDictionaryTable.generated.inc"
};

constexpr bool IsStrictlyAscending() {
    for (std::size_t i = 1; i < std::size(kRows); ++i) {
        if (kRows[i - 1].key >= kRows[i].key) {
            return false;
        }
    }
    return true;
}

// Lookup searches by halves: a row out of order would hide its neighbours.
static_assert(IsStrictlyAscending());

}  // namespace

const DcmDictionaryRow* PublicDictionaryRows(std::size_t& count) {
    count = std::size(kRows);
    return kRows;
}

DcmDictionary& SharedPublicDictionary() {
    static DcmDictionary dictionary;
    static const bool built = [] {
        std::size_t count = 0;
        const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
        return dictionary.Build(rows, count) != 0;
    }();
    if (!built) throw std::bad_alloc();
    return dictionary;
}
