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

TEST(CVariantVR, TextWithAFormBecomesNumbersAndDates) {
    Element decimals("DS", "1.5\\2.5 \\ -1E2\\x\\7");
    EXPECT_EQ(decimals[1].vt, VT_R8);
    EXPECT_EQ(decimals[1].dblVal, 2.5);
    EXPECT_EQ(decimals[9].dblVal, 2.5) << "the previous result stays";
    EXPECT_EQ(decimals[2].dblVal, -100);
    EXPECT_EQ(TextOf(decimals[3]), "x") << "no number";
    EXPECT_EQ(TextOf(decimals[9]), "x") << "what stays is not converted";
    Element integers("IS", "12\\-2147483648\\2147483648");
    EXPECT_EQ(integers[1].vt, VT_I4);
    EXPECT_EQ(integers[1].lVal, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(TextOf(integers[2]), "2147483648");

    Element dates("DA", "20000102\\2000\\19991332\\18991229");
    EXPECT_EQ(dates[0].vt, VT_DATE);
    for (const int i : {0, 1, 2}) EXPECT_EQ(dates[i].date, 36527) << "a date, and two that are none";
    EXPECT_EQ(dates[3].date, -1);
    Element times("DT", "20000102180000.123456+0100\\18991229060000\\20000102\\2000010212");
    EXPECT_EQ(times[0].date, 36527.75);
    EXPECT_EQ(times[1].date, -1.25);
    EXPECT_EQ(times[2].date, 36527);
    EXPECT_EQ(times[3].date, 36527.5);
    Element hours("TM", "090807.001200\\12\\noon\\235959 ");
    EXPECT_EQ(TextOf(hours[0]), "9:8:7.1200") << "no zeros in front";
    EXPECT_EQ(TextOf(hours[1]), "12:0:0.0");
    EXPECT_EQ(TextOf(hours[2]), "12:0:0.0") << "no time";
    EXPECT_EQ(TextOf(hours[3]), "23:59:59.0");
}

TEST(CVariantVR, BinaryNumbersHaveATypeEach) {
    Element us("US", Little<std::uint16_t>({1, 0xFFFE}) + "x");
    EXPECT_EQ(us[1].vt, VT_I4);
    EXPECT_EQ(us[1].lVal, 0xFFFE);
    EXPECT_EQ(us[2].lVal, 0xFFFE) << "an odd byte is no value";
    Element at("AT", Little<std::uint16_t>({0x0028, 0x0010}));
    EXPECT_EQ(at[1].lVal, 0x0010) << "a tag is two values";
    Element ss("SS", Little<std::int16_t>({-2}));
    EXPECT_EQ(ss[0].vt, VT_I2);
    EXPECT_EQ(ss[0].iVal, -2);
    Element ul("UL", Little<std::uint32_t>({5, 0xFFFFFFFF}));
    EXPECT_EQ(ul[1].vt, VT_R8);
    EXPECT_EQ(ul[1].dblVal, 4294967295.0);
    Element sl("SL", Little<std::int32_t>({5, -3}));
    EXPECT_EQ(sl[1].vt, VT_I4);
    EXPECT_EQ(sl[1].lVal, -3);
    Element fl("FL", Little<float>({1, 0.1F}));
    EXPECT_EQ(fl[1].vt, VT_R4);
    EXPECT_EQ(fl[1].fltVal, 0.1F);
    Element fd("FD", Little<double>({1, std::nan("")}));
    EXPECT_EQ(fd[1].vt, VT_R8);
    EXPECT_TRUE(std::isnan(fd[1].dblVal));
    for (const int beyond : {-1, 2, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(sl[beyond].lVal, -3);
        EXPECT_TRUE(std::isnan(fd[beyond].dblVal));
    }
}

TEST(CVariantVR, MultiplicityCountsAsCallersRelyOn) {
    const struct {
        char m_Type[3];
        std::size_t m_Bytes;
        int m_Count;
    } kCases[] = {{"US", 7, 3}, {"SS", 6, 3},  {"AT", 8, 4},  {"UL", 11, 2}, {"SL", 8, 2},
                  {"FL", 8, 2}, {"FD", 32, 1}, {"vr", 33, 4}, {"OB", 9, 1},  {"SQ", 0, 1},
                  {"LT", 0, 1}, {"LO", 0, 0},  {"US", 0, 0},  {"UN", 4, 1},  {"DS", 3, 1}};
    for (const auto& one : kCases) {
        EXPECT_EQ(Element(one.m_Type, std::string(one.m_Bytes, 'x'))->GetVM(), one.m_Count) << one.m_Type;
    }
    for (const auto& type : {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "PN", "SH", "TM", "UI"}) {
        const char code[3] = {type[0], type[1], 0};
        EXPECT_EQ(Element(code, "\\1\\")->GetVM(), 3) << type;
    }
    EXPECT_EQ(CVariantVR().GetVM(), 1);
}

TEST(CVariantVR, TextsAreReplacedBetweenTheirSeparators) {
    const auto set = [](const char* bytes, int i, const char* text) {
        Element element("LO", bytes);
        Value value(text);
        EXPECT_TRUE(element->SetString(value, i, 0));
        EXPECT_EQ(element.m_VR.m_bOwnsData, 1);
        return element.Bytes();
    };
    EXPECT_EQ(set("A \\B  \\C", 1, "long one"), "A \\long one\\C") << "trailing blanks go with the value";
    EXPECT_EQ(set("A\\B", 0, ""), "\\B");
    EXPECT_EQ(set("A\\B", 1, "xyz"), "A\\xyz") << "an odd length";
    EXPECT_EQ(set("A\\B", 5, "X"), "A\\B\\X") << "one separator, however far";
    EXPECT_EQ(set("A\\B", std::numeric_limits<int>::max(), "X"), "A\\B\\X");
    EXPECT_EQ(set("", 3, "abc"), "\\\\\\abc");
    EXPECT_EQ(set("", 0, "abc"), "abc");
    EXPECT_EQ(set("A", 0, "x\\y"), "x\\y");
    EXPECT_EQ(set("A\\", 1, std::string(400, 'w').c_str()), "A\\" + std::string(400, 'w'));

    // Memory that is not the element's own is left alone.
    char borrowed[] = "A\\B";
    Element element("LO", "");
    element.m_VR.m_pData = reinterpret_cast<unsigned char*>(borrowed);
    element.m_VR.m_Length = 3;
    element.m_VR.m_bOwnsData = 0;
    Value number(2.5), text("\xE9");
    EXPECT_TRUE(element->SetVal(number, 0));
    EXPECT_TRUE(element->SetVal(text, 1));
    EXPECT_EQ(element.Bytes(), "2.5\\\xE9");
    EXPECT_STREQ(borrowed, "A\\B");
    EXPECT_EQ(element.m_VR.m_TypeCode, TypeCode("LO"));
    text.bstrVal[0] = 0x20AC;
    EXPECT_TRUE(element->SetVal(element[0], 1)) << "its own result";
    EXPECT_TRUE(element->SetVal(text, 0));
    EXPECT_EQ(element.Bytes(), "?\\2.5") << "what one byte does not hold";
}

TEST(CVariantVR, SetValConvertsByRepresentation) {
    const auto set = [](const char(&type)[3], VARIANT& value) {
        Element element(type, "");
        return element->SetVal(value, 0) ? element.Bytes() : "refused";
    };
    Value real(-0.00001), third(1.0 / 3), text("1,234.50"), word("x"), afternoon(36527.75, VT_DATE), day("1/2/2000");
    Value time("1:2:3.4"), hour("7"), nothing;
    nothing.vt = VT_NULL;
    EXPECT_EQ(set("DS", real), "-1E-05");
    EXPECT_EQ(set("DS", third), "0.333333333333333");
    EXPECT_EQ(set("DS", text), "1234.5");
    EXPECT_EQ(set("IS", text), "1,234.50") << "only made a text";
    EXPECT_EQ(set("DA", afternoon), "20000102");
    EXPECT_EQ(set("DA", day), "20000102");
    EXPECT_EQ(set("DT", afternoon), "20000102180000.000000");
    EXPECT_EQ(set("TM", afternoon), "180000.0");
    EXPECT_EQ(set("TM", time), "010203.4");
    EXPECT_EQ(set("TM", hour), "070000.0");
    EXPECT_EQ(set("PN", word), "x");
    EXPECT_EQ(set("US", text), Little<std::uint16_t>({1234}));
    EXPECT_EQ(set("SS", real), Little<std::int16_t>({0}));
    EXPECT_EQ(set("UL", text), Little<std::uint32_t>({1234}));
    EXPECT_EQ(set("SL", text), Little<std::int32_t>({1234}));
    EXPECT_EQ(set("FL", third), Little<float>({1.0F / 3}));
    EXPECT_EQ(set("FD", third), Little<double>({1.0 / 3}));
    EXPECT_EQ(set("SQ", word), "") << "taken, not stored";
    for (const auto& type : {"DS", "DA", "DT", "TM", "US", "SS", "UL", "SL", "FL", "FD", "OB", "UN"}) {
        const char code[3] = {type[0], type[1], 0};
        EXPECT_EQ(set(code, word), "refused") << type;
        EXPECT_EQ(set(code, nothing), "refused") << type;
    }
    Element old("LO", "kept");
    EXPECT_FALSE(old->SetVal(nothing, 0));
    EXPECT_FALSE(old->SetVal(word, -1));
    EXPECT_EQ(old.Bytes(), "kept");
    EXPECT_FALSE(CVariantVR(nullptr, TypeCode("LO")).SetVal(word, 0));
}

TEST(CVariantVR, EmptyTakesTheValueAway) {
    for (const auto& type : {"LO", "US", "OB", "SQ", "LT", "DA"}) {
        const char code[3] = {type[0], type[1], 0};
        Element element(code, "20000102");
        Value empty;
        EXPECT_TRUE(element->SetVal(empty, 7));
        EXPECT_EQ(element.m_VR.m_Length, 0u);
        EXPECT_EQ(element.m_VR.m_pData, nullptr);
        EXPECT_EQ(element[0].vt, VT_EMPTY);
    }
}

TEST(CVariantVR, BinaryNumbersAreReplacedAndAppended) {
    Element us("US", Little<std::uint16_t>({1, 2, 3}));
    Value number(65535);
    EXPECT_TRUE(us->SetVal(number, 1));
    EXPECT_EQ(us.Bytes(), Little<std::uint16_t>({1, 65535, 3}));
    number.lVal = -1;
    EXPECT_TRUE(us->SetVal(number, 4));
    EXPECT_EQ(us.Bytes(), Little<std::uint16_t>({1, 65535, 3, 0, 65535})) << "zeros between";
    EXPECT_EQ(us.m_VR.m_TypeCode, TypeCode("US"));
    for (const int beyond : {-1, 40000, std::numeric_limits<int>::max()}) EXPECT_FALSE(us->SetVal(number, beyond));
    EXPECT_EQ(us->GetVM(), 5);
    Element large("FD", std::string(80000, '\0'));
    EXPECT_TRUE(large->SetVal(number, 10000)) << "the next value, whatever the length";
    EXPECT_FALSE(large->SetVal(number, 10002));
    EXPECT_EQ(large[10000].dblVal, -1);
}

TEST(CVariantVR, BytesGoThroughArrays) {
    Element bytes("OB", std::string("a\0b", 3));
    const VARIANT& all = bytes[5];
    ASSERT_EQ(all.vt, VT_ARRAY | VT_UI1);
    LONG last = 0, at = 2;
    char third = 0;
    SafeArrayGetUBound(all.parray, 1, &last);
    SafeArrayGetElement(all.parray, &at, &third);
    EXPECT_EQ(last, 2);
    EXPECT_EQ(third, 'b');
    Element other("UN", "");
    EXPECT_EQ(other->GetByteArray().vt, VT_EMPTY);
    EXPECT_TRUE(other->SetVal(bytes[0], 0));
    EXPECT_EQ(other.Bytes(), std::string("a\0b\0", 4)) << "an even length";

    const auto refused = [&](VARTYPE vt, VARTYPE elements, UINT dimensions) {
        SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}, {2, 0}};
        Value value;
        value.vt = VT_ARRAY | vt;
        value.parray = SafeArrayCreate(elements, dimensions, bounds);
        const bool set = other->SetByteArray(value);
        value.vt = VT_ARRAY | elements;
        return !set && other.Bytes().size() == 4;
    };
    EXPECT_TRUE(refused(VT_I2, VT_I2, 1));
    EXPECT_TRUE(refused(VT_UI1, VT_UI1, 3));
    EXPECT_TRUE(refused(VT_UI1, VT_UI1, 2));
    EXPECT_TRUE(refused(VT_UI1, VT_I4, 1)) << "not what it says";
    Value none, signedBytes;
    none.vt = VT_ARRAY | VT_UI1;
    none.parray = nullptr;
    EXPECT_FALSE(other->SetByteArray(none));
    signedBytes.vt = VT_ARRAY | VT_I1;
    signedBytes.parray = SafeArrayCreateVector(VT_I1, 7, 0);
    EXPECT_TRUE(other->SetByteArray(signedBytes));
    EXPECT_EQ(other.m_VR.m_Length, 0u);
}

TEST(CVariantVR, CopiesHaveResultsOfTheirOwn) {
    Element names("LO", "A\\B");
    CVariantVR first(&names.m_VR, TypeCode("LO"));
    const VARIANT& result = first.GetVal(1);
    CVariantVR copy(first), assigned;
    assigned = copy;
    first.GetVal(0);
    EXPECT_EQ(TextOf(result), "A");
    EXPECT_EQ(TextOf(copy.GetVal(9)), "B");
    EXPECT_EQ(TextOf(assigned.GetVal(9)), "B");
    EXPECT_EQ(TextOf(assigned.GetVal(0)), "A") << "of the same element";
    assigned = *&assigned;
    EXPECT_EQ(TextOf(assigned.GetVal(9)), "A");
    EXPECT_EQ(CVariantVR(nullptr, 0).GetVal(0).vt, VT_EMPTY);
}
