// The values of elements, read and written as automation values.
#include "automation/Values.h"

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr int kMost = std::numeric_limits<int>::max(), kLeast = std::numeric_limits<int>::min();

// An element of a representation, with exactly these bytes.
class Element {
public:
    Element(const std::string& type, const std::string& bytes)
        : m_VR(0x0009, 0x0010, static_cast<std::uint32_t>(bytes.size()), 1), m_Bridge(&m_VR, type[0] << 8 | type[1]) {
        m_VR.m_TypeCode = static_cast<std::uint16_t>(type[0] << 8 | type[1]);
        if (!bytes.empty()) std::memcpy(m_VR.m_pData, bytes.data(), bytes.size());
        m_VR.m_Length = static_cast<std::uint32_t>(bytes.size());
    }
    CVariantVR* operator->() { return &m_Bridge; }
    std::string operator[](int i) { return Named(m_Bridge[i]); }
    std::string Bytes() const { return std::string(m_VR.GetText()); }

    VR m_VR;
    CVariantVR m_Bridge;
};

// The results, one after the other, of the same element.
std::string Read(const std::string& type, const std::string& bytes, std::initializer_list<int> indices) {
    Element element(type, bytes);
    std::string all;
    for (const int i : indices) all += element[i] + "|";
    return all;
}

// The bytes after a value has been set.
std::string Written(const std::string& type, VARIANT& value, const std::string& bytes = "", int i = 0) {
    Element element(type, bytes);
    return element->SetVal(value, i) ? element.Bytes() : "refused";
}

std::string Written(const std::string& type, const std::string& text, const std::string& bytes = "", int i = 0) {
    Value value(text);
    return Written(type, value, bytes, i);
}

template <class T>
std::string Little(std::initializer_list<T> numbers) {
    return std::string(reinterpret_cast<const char*>(numbers.begin()), numbers.size() * sizeof(T));
}

}  // namespace

// Where there is no value i the result stays as it was.
TEST(CVariantVR, TextsAreCutAndConverted) {
    EXPECT_EQ(Read("LO", " A \\B C  \\\\D\\\xE9", {0, 1, 2, 3, 4}), "BSTR  A|BSTR B C|BSTR |BSTR D|BSTR \xE9|");
    EXPECT_EQ(Read("LO", "A\\B", {1, 2, -1, kMost, kLeast}), "BSTR B|BSTR B|BSTR B|BSTR B|BSTR B|");
    EXPECT_EQ(Read("UI", std::string("1.2.3\0", 6), {0}) + Read("LO", "", {0}), "BSTR 1.2.3|EMPTY |");
    EXPECT_EQ(Element("PN", std::string(300, 'x') + "\\" + std::string(255, 'y'))[1], "BSTR " + std::string(255, 'y'));
    EXPECT_EQ(Read("DS", "1.5\\2.5 \\ -1E2\\x", {1, 9, 2, 3, 9}), "R8 2.5|R8 2.5|R8 -100|BSTR x|BSTR x|");
    EXPECT_EQ(Read("IS", "12\\-2147483648\\2147483648", {1, 2}), "I4 -2147483648|BSTR 2147483648|");
    EXPECT_EQ(Read("DA", "20000102\\2000\\1999-1-2\\18991229", {0, 1, 2, 3}),
              "DATE 36527|DATE 36527|DATE 36527|DATE -1|")
        << "a date, and two that are none";
    EXPECT_EQ(Read("DT", "20000102180000.123456+0100\\18991229060000\\20000102\\2000010212", {0, 1, 2, 3}),
              "DATE 36527.75|DATE -1.25|DATE 36527|DATE 36527.5|");
    EXPECT_EQ(Read("TM", "090807.001200\\12\\noon\\235959 ", {0, 1, 2, 3}),
              "BSTR 9:8:7.1200|BSTR 12:0:0.0|BSTR 12:0:0.0|BSTR 23:59:59.0|")
        << "no zeros in front";
    for (const char* type : {"ST", "LT", "UT"}) {
        Element text(type, "one\\still one ");
        EXPECT_EQ(text[0], "BSTR one");
        Value value("x");
        for (const bool set : {false, true}) {
            try {
                set ? void(text->SetVal(value, 1)) : void(text->GetVal(1));
                ADD_FAILURE() << type;
            } catch (const std::string& message) {
                EXPECT_EQ(message, "Error: VR type ST,LT and UT have VM=1");
            }
        }
    }
}

TEST(CVariantVR, BinaryNumbersHaveATypeEach) {
    EXPECT_EQ(Read("US", Little<std::uint16_t>({1, 0xFFFE}) + "x", {1, 2}), "I4 65534|I4 65534|");
    EXPECT_EQ(Read("AT", Little<std::uint16_t>({0x28, 0x10}), {1}), "I4 16|") << "a tag is two values";
    EXPECT_EQ(Read("SS", Little<std::int16_t>({-2}), {0}), "I2 -2|");
    EXPECT_EQ(Read("UL", Little<std::uint32_t>({5, 0xFFFFFFFF}), {1}), "R8 4294967295|");
    EXPECT_EQ(Read("SL", Little<std::int32_t>({5, -3}), {1, 2, -1, kMost, kLeast}), "I4 -3|I4 -3|I4 -3|I4 -3|I4 -3|");
    EXPECT_EQ(Read("FL", Little<float>({1, 0.1F}), {1}), "R4 0.1|");
    EXPECT_EQ(Read("FD", Little<double>({1, 0.1}), {1, kMost, kLeast}), "R8 0.1|R8 0.1|R8 0.1|");

    Element us("US", Little<std::uint16_t>({1, 2, 3}));
    Value number(65535.0), negative(-1.0);
    EXPECT_TRUE(us->SetVal(number, 1) && us->SetVal(negative, 4));
    EXPECT_EQ(us.Bytes(), Little<std::uint16_t>({1, 65535, 3, 0, 65535})) << "zeros between";
    EXPECT_TRUE(us.m_VR.m_TypeCode == TypeCode("US") && us->GetVM() == 5);
    for (const int beyond : {-1, 40000, kMost}) EXPECT_FALSE(us->SetVal(number, beyond));
    Element large("FD", std::string(80000, '\0'));
    EXPECT_TRUE(large->SetVal(number, 10000)) << "the next value, whatever the length";
    EXPECT_FALSE(large->SetVal(number, 10002));
    EXPECT_EQ(large[10000], "R8 65535");
}

TEST(CVariantVR, MultiplicityOfEachRepresentation) {
    std::string counts;
    for (const char* type : {"US", "SS", "AT", "UL", "SL", "FL", "FD", "vr", "OB", "SQ", "LT", "LO", "UN", "DS"}) {
        counts += std::to_string(Element(type, std::string(33, 'x'))->GetVM()) + " ";
    }
    EXPECT_EQ(counts, "16 16 16 8 8 8 1 4 1 1 1 1 1 1 ");
    for (const char* type : {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "PN", "SH", "TM", "UI"}) {
        EXPECT_EQ(Element(type, "\\1\\")->GetVM(), 3) << type;
    }
    EXPECT_EQ(Element("LO", "")->GetVM() * 100 + Element("LT", "")->GetVM() * 10 + Element("US", "")->GetVM(), 10);
    EXPECT_EQ(CVariantVR().GetVM(), 1);
}

TEST(CVariantVR, TextsAreReplacedBetweenTheirSeparators) {
    EXPECT_EQ(Written("LO", "long one", "A \\B  \\C", 1), "A \\long one\\C") << "trailing blanks go with the value";
    EXPECT_EQ(Written("LO", "", "A\\B") + Written("LO", "xyz", "A\\B", 1), "\\BA\\xyz") << "an odd length";
    EXPECT_EQ(Written("LO", "X", "A\\B", 5) + Written("LO", "Y", "A", kMost), "A\\B\\XA\\Y") << "one separator";
    EXPECT_EQ(Written("LO", "abc", "", 3) + Written("LO", "abc") + Written("LO", "x\\y", "A"), "\\\\\\abcabcx\\y");
    EXPECT_EQ(Written("LO", std::string(400, 'w'), "A\\", 1), "A\\" + std::string(400, 'w'));
    EXPECT_EQ(Written("LO", "x", "kept", -1), "refused");

    // Memory that is not the element's own is left alone.
    char borrowed[] = "A\\B";
    Element element("LO", "");
    element.m_VR.m_pData = reinterpret_cast<unsigned char*>(borrowed);
    element.m_VR.m_Length = 3;
    element.m_VR.m_bOwnsData = 0;
    Value number(2.5), text("\xE9");
    EXPECT_TRUE(element->SetVal(number, 0) && element->SetVal(text, 1));
    EXPECT_EQ(element.Bytes() + borrowed, "2.5\\\xE9"
                                          "A\\B");
    EXPECT_TRUE(element.m_VR.m_TypeCode == TypeCode("LO") && element.m_VR.m_bOwnsData == 1);
    text.bstrVal[0] = 0x20AC;
    EXPECT_TRUE(element->SetVal((*element.operator->())[0], 1)) << "its own result";
    EXPECT_TRUE(element->SetVal(text, 0));
    EXPECT_EQ(element.Bytes(), "?\\2.5") << "what one byte does not hold";
}

TEST(CVariantVR, SetValConvertsByRepresentation) {
    Value real(-0.00001), third(1.0 / 3), afternoon(36527.75, VT_DATE), nothing(0.0, VT_NULL), empty;
    EXPECT_EQ(Written("DS", real) + " " + Written("DS", third) + " " + Written("DS", "1,234.50"),
              "-1E-05 0.333333333333333 1234.5");
    EXPECT_EQ(Written("IS", "1,234.50") + Written("PN", "x") + Written("SQ", "taken"), "1,234.50x");
    EXPECT_EQ(Written("DA", afternoon) + Written("DA", "1/2/2000"), "2000010220000102");
    EXPECT_EQ(Written("DT", afternoon), "20000102180000.000000");
    EXPECT_EQ(Written("TM", afternoon) + Written("TM", "1:2:3.4") + Written("TM", "7"), "180000.0010203.4070000.0");
    EXPECT_EQ(Written("US", "1,234.50") + Written("SS", real), Little<std::uint16_t>({1234, 0}));
    EXPECT_EQ(Written("UL", "1,234.50") + Written("SL", "-5"), Little<std::int32_t>({1234, -5}));
    EXPECT_EQ(Written("FL", third) + Written("FD", third), Little({1.0F / 3}) + Little({1.0 / 3}));
    for (const char* type : {"DS", "DA", "DT", "TM", "US", "SS", "UL", "SL", "FL", "FD", "OB", "UN"}) {
        EXPECT_EQ(Written(type, "x") + Written(type, nothing), "refusedrefused") << type;
        Element element(type, "20000102");
        EXPECT_TRUE(element->SetVal(empty, 7) && element.m_VR.m_Length == 0 && element.m_VR.m_pData == nullptr);
        EXPECT_EQ(element[0], "EMPTY ");
    }
    EXPECT_TRUE(Written("LO", nothing) == "refused" && !CVariantVR(nullptr, TypeCode("LO")).SetVal(real, 0));
}

TEST(CVariantVR, BytesGoThroughArrays) {
    Element bytes("OB", std::string("a\0b", 3)), other("UN", "");
    Value all, text;
    ASSERT_EQ(VariantCopy(&all, &bytes->GetVal(5)), S_OK);
    ASSERT_EQ(all.vt, VT_ARRAY | VT_UI1);
    EXPECT_EQ(other->GetByteArray().vt, VT_EMPTY);
    EXPECT_TRUE(other->SetVal(all, 0));
    EXPECT_EQ(other.Bytes(), std::string("a\0b\0", 4)) << "an even length";
    SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}, {2, 0}};
    Value shorts(SafeArrayCreate(VT_I2, 1, bounds), VT_I2), cube(SafeArrayCreate(VT_UI1, 3, bounds), VT_UI1);
    Value square(SafeArrayCreate(VT_UI1, 2, bounds), VT_UI1), none(nullptr, VT_UI1);
    Value liar(SafeArrayCreate(VT_I4, 1, bounds), VT_UI1), empty(SafeArrayCreateVector(VT_I1, 7, 0), VT_I1);
    for (Value* wrong : {&shorts, &cube, &square, &none, &liar}) EXPECT_FALSE(other->SetByteArray(*wrong));
    EXPECT_TRUE(FAILED(VariantChangeType(&text, &square, 0, VT_BSTR)));
    EXPECT_EQ(other.Bytes().size(), 4u);
    EXPECT_TRUE(other->SetByteArray(empty) && other.m_VR.m_Length == 0);
}

TEST(CVariantVR, CopiesHaveResultsOfTheirOwn) {
    Element names("LO", "A\\B");
    CVariantVR first(&names.m_VR, TypeCode("LO"));
    const VARIANT& result = first.GetVal(1);
    CVariantVR copy(first), assigned;
    assigned = copy;
    first.GetVal(0);
    EXPECT_EQ(Shown(result) + Shown(copy.GetVal(9)) + Shown(assigned.GetVal(9)), "ABB");
    EXPECT_EQ(Shown(assigned.GetVal(0)), "A") << "of the same element";
    assigned = *&assigned;
    EXPECT_EQ(Shown(assigned.GetVal(9)) + Named(CVariantVR(nullptr, 0).GetVal(0)), "AEMPTY ");
}
