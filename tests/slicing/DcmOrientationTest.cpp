#include <Korvane/Dicom.h>
#include <Korvane/series/ValueHelpers.h>
#include <Korvane/slicing/DcmOrientation.h>

#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

std::string FromElement(int element, const char* text) {
    DICOMDataObject object;
    STRPush(object, 0x0020, element, text);
    return DcmOrientation::GetOrientation(&object);
}

std::string FromCosines(const char* text) {
    return FromElement(0x0037, text);
}

// The raw plane, then "a" for the first flip and "b" for the second.
std::string View(const std::string& orientation, int view) {
    bool flip1 = true, flip2 = true;
    const auto ortho = static_cast<DcmOrientation::OrthoPlane>(view);
    const int plane = DcmOrientation::TranslateToRawPlane(orientation, ortho, flip1, flip2);
    return std::to_string(plane) + (flip1 ? "a" : "") + (flip2 ? "b" : "");
}

std::string Views(const std::string& orientation) {
    return View(orientation, 0) + " " + View(orientation, 1) + " " + View(orientation, 2);
}

// Letters of row and column; axial, coronal, sagittal.
constexpr char kViews[] = "LA 0b 2 1\nLP 0 2 1\nRA 0ab 2 1\nRP 0a 2 1\n"
                          "LF 2b 0 4a\nLH 2ab 0b 4b\nRF 2 0ab 4ab\nRH 2 0a 4\n"
                          "AL 5b 3 4\nAR 5ab 3 4\nPL 5 3 4\nPR 5a 3 4\n"
                          "AF 3 4a 0ab\nAH 3 4ab 0a\nPF 3 4 0\nPH 3 4b 0b\n"
                          "FL 3 5 1\nFR 3 5 1\nHL 3 5 1\nHR 3 5 1\n"
                          "FA 2 1 5\nFP 2 1 5\nHA 2 1 5\nHP 2 1 5\n";

}  // namespace

TEST(DcmOrientation, LettersOfCosines) {
    EXPECT_EQ(FromCosines("1\\0\\0\\0\\1\\0"), "L\\P\\");
    EXPECT_EQ(FromCosines("-1\\0\\0\\0\\-1\\0 "), "R\\A\\");
    EXPECT_EQ(FromCosines("0\\1\\0\\0\\0\\-1"), "P\\F\\");
    EXPECT_EQ(FromCosines("0.8\\0.6\\0\\0.0001\\-0.00011\\0"), "LP\\A\\");
    EXPECT_EQ(FromCosines("-0.2\\0.3\\0.9\\0.5\\-0.1\\-0.7"), "HPR\\FLA\\");
    EXPECT_EQ(FromCosines("0.7071\\0.7071\\0\\0\\0\\1"), "\\H\\");    // a tie ends the group
    EXPECT_EQ(FromCosines("0.9\\0.3\\0.3\\0.5\\0.5\\0.5"), "L\\\\");  // after one letter, at once
    EXPECT_EQ(FromCosines("nan\\1\\0\\0\\1\\0"), "\\P\\");
    EXPECT_EQ(FromCosines("1\\0\\0\\0\\1"), "");
    EXPECT_EQ(FromCosines("1\\0\\0\\0\\1\\x"), "");
    EXPECT_EQ(FromElement(0x0032, "1\\0\\0\\0\\1\\0"), "");
    EXPECT_EQ(DcmOrientation::GetOrientation(nullptr), "");
}

TEST(DcmOrientation, LettersOfTheElement) {  // which counts before the cosines, whatever stands in it
    DICOMDataObject object;
    STRPush(object, 0x0020, 0x0037, "1\\0\\0\\0\\1\\0");
    const std::string text = " AR\\FL?" + std::string(400, 'x');
    STRPush(object, 0x0020, 0x0020, text.c_str());
    EXPECT_EQ(DcmOrientation::GetOrientation(&object), text);
}

TEST(DcmOrientation, Inversion) {
    const std::string kTexts[][2] = {{"L\\P\\", "R\\A\\"}, {"lx", "R"},        {"AfH\\\\r", "PHF\\\\L"}, {"", ""},
                                     {"\\", "\\"},         {"L1P\\F", "RA\\H"}};
    for (const auto& [from, to] : kTexts) {
        std::string text = from;
        EXPECT_EQ(&DcmOrientation::InvertOrientation(text), &text);
        EXPECT_EQ(text, to);
    }
}

TEST(DcmOrientation, RawPlanes) {
    std::istringstream lines(kViews);
    std::string line;
    int known = 0;
    for (; std::getline(lines, line); ++known) {
        for (const char* const tail : {"\\", "AF\\"}) {  // further letters do not count
            EXPECT_EQ(Views(line.substr(0, 1).append(tail).append(1, line[1]).append(tail)), line.substr(3)) << line;
        }
    }
    EXPECT_EQ(known, 24);
    EXPECT_EQ(Views(""), "0b 2 1");
    for (const char* other : {"L\\R\\", "A\\A", "X", "L", "\\H\\", "L\\", "l\\p\\", "\\"}) {
        EXPECT_EQ(Views(other), "0 2 1") << other;
    }
    EXPECT_EQ(View("L\\A\\", 3) + View("", -1), "00");

    DICOMDataObject object;
    STRPush(object, 0x0020, 0x0037, "0\\-1\\0\\0\\0\\-1");
    bool flip1 = false, flip2 = false;
    EXPECT_EQ(DcmOrientation::TranslateToRawPlane(&object, DcmOrientation::OP_SAGITTAL, flip1, flip2), VP_XY);
    EXPECT_TRUE(flip1 && flip2);
}
