// What the module throws reaches the catch of the program that called it, and the other way round, although each has a
// runtime of its own on some systems.

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

/// What a call throws, in words.
std::string Thrown(const std::function<void()>& call) {
    try {
        call();
    } catch (int number) {
        return "int " + std::to_string(number);
    } catch (char* text) {
        return std::string("char* ") + text;
    } catch (const std::string& text) {
        return "string " + text;
    } catch (const DimException&) {
        return "DimException";
    } catch (const MemException&) {
        return "MemException";
    } catch (const ZeroException&) {
        return "ZeroException";
    } catch (const Exception&) {
        return "Exception";
    } catch (const std::logic_error& error) {
        return std::string("logic_error ") + error.what();
    }
    return "nothing";
}

}  // namespace

TEST(ModuleException, EveryKindReachesTheProgram) {
    EXPECT_EQ(Thrown([] { CVolume().Alloc(true); }), "int 1");
    EXPECT_EQ(Thrown([] {
                  DICOMDataObject placed, lost;
                  STRPush(placed, 0x0020, 0x0032, "0\\0\\0");
                  std::vector<DICOMDataObject*> list = {&placed, &lost};
                  CDicomVolume().SetIODList(list, nullptr);
              }),
              "char* Cannor find Image Plane");
    EXPECT_EQ(Thrown([] {
                  VR text;
                  CVariantVR(&text, TypeCode("LT")).GetString(1);
              }),
              "string Error: VR type ST,LT and UT have VM=1");
    const FMatrix wide(2, 3);
    EXPECT_EQ(Thrown([&wide] { inv(wide); }), "DimException");
    EXPECT_EQ(Thrown([] { FMatrix(INT_MAX, INT_MAX); }), "MemException");
    FMatrix full(3, 3);
    full.set(1);
    EXPECT_EQ(Thrown([&full] { inv(full); }), "ZeroException");
    full[2][1] = 2;
    full[0][2] = 3;
    EXPECT_EQ(Thrown([&full] { full.hgr(); }), "Exception");
    EXPECT_EQ(Thrown([] { CImagePlane() = CImagePlane(); }), "logic_error CImagePlane cannot be assigned");
}

TEST(ModuleException, WhatAHostsCallbackThrowsPassesThroughTheModule) {
    struct Stopping : CPercent {
        bool OnProgress(short percent) override { throw "stopped at " + std::to_string(percent); }
    };
    Stopping stopping;
    stopping.SetTotElab(10);
    stopping.StartProgress();
    EXPECT_EQ(Thrown([&stopping] { stopping.FireProgress(5); }), "string stopped at 50");
}
