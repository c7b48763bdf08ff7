// The values of elements, read and written as automation values.
#include "Values.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

/// An element of a representation, with exactly these bytes.
class Element {
public:
    Element(const char (&type)[3], const std::string& bytes)
        : m_VR(0x0009, 0x0010, static_cast<std::uint32_t>(bytes.size()), 1), m_Bridge(&m_VR, TypeCode(type)) {
        m_VR.m_TypeCode = TypeCode(type);
        if (!bytes.empty()) std::memcpy(m_VR.m_pData, bytes.data(), bytes.size());
        m_VR.m_Length = static_cast<std::uint32_t>(bytes.size());
    }
    CVariantVR* operator->() { return &m_Bridge; }
    VARIANT& operator[](int i) { return m_Bridge[i]; }
    std::string Bytes() const { return std::string(m_VR.GetText()); }

    VR m_VR;
    CVariantVR m_Bridge;
};

template <class T>
std::string Little(std::initializer_list<T> numbers) {
    return std::string(reinterpret_cast<const char*>(numbers.begin()), numbers.size() * sizeof(T));
}

}  // namespace

TEST(CVariantVR, TextsAreCutAtBackslashesAndBlanks) {
    Element names("LO", " A \\B C  \\\\D\\\xE9");
    EXPECT_EQ(TextOf(names[0]), " A");
    EXPECT_EQ(TextOf(names[1]), "B C");
    EXPECT_EQ(TextOf(names[2]), "");
    EXPECT_EQ(TextOf(names[3]), "D");
    EXPECT_EQ(names[4].bstrVal[0], static_cast<OLECHAR>(0xE9));
    EXPECT_EQ(names->GetVM(), 5);
    for (const int beyond : {5, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(names[beyond].bstrVal[0], static_cast<OLECHAR>(0xE9)) << "the result stays as it was";
    }
    EXPECT_EQ(TextOf(Element("UI", std::string("1.2.3\0", 6))[0]), "1.2.3");
    EXPECT_EQ(TextOf(Element("PN", std::string(300, 'x') + "\\" + std::string(255, 'y'))[1]), std::string(255, 'y'));
    EXPECT_EQ(Element("LO", "")[0].vt, VT_EMPTY);
}

TEST(CVariantVR, LongTextsHaveOneValue) {
    const char types[][3] = {"ST", "LT", "UT"};
    for (const auto& type : types) {
        Element text(type, "one\\still one ");
        EXPECT_EQ(text->GetVM(), 1);
        Value value("x");
        for (const bool set : {false, true}) {
            try {
                set ? void(text->SetVal(value, 1)) : void(text->GetVal(1));
                ADD_FAILURE() << type;
            } catch (const std::string& message) {
                EXPECT_EQ(message, "Error: VR type ST,LT and UT have VM=1");
            }
        }
        EXPECT_EQ(TextOf(text[0]), "one");
    }
}
