// Vectors and matrices as automation values, and back.
#include "automation/Values.h"

#include <Korvane/Korvane.h>

#include <gtest/gtest.h>

TEST(CVariant, VectorsThereAndBack) {
    Value text("1.5"), number(-7.0), word("x"), out("was a text");
    EXPECT_EQ(CVariant::GetFloat(&text) + CVariant::GetFloat(&number), -5.5F);
    EXPECT_EQ(CVariant::GetFloat(&word) + CVariant::GetFloat(nullptr), 0.0F);
    const float numbers[] = {1.5F, -2, 3e20F};
    const FVector vector(numbers, 3);
    ASSERT_EQ(CVariant::CreateFloatArray(&out, vector, 3), 1);
    ASSERT_EQ(out.vt, VT_ARRAY | VT_R4);
    LONG first = 1, last = 0;
    SafeArrayGetLBound(out.parray, 1, &first);
    SafeArrayGetUBound(out.parray, 1, &last);
    EXPECT_TRUE(first == 0 && last == 2);
    FVector back;
    bool ok = false;
    EXPECT_TRUE(CVariant::GetFloatArray(&out, back, &ok, 3) == 1 && ok && back == vector);
    for (const int wrong : {4, 0, -1}) {
        EXPECT_EQ(CVariant::CreateFloatArray(&out, vector, wrong), 0);
        EXPECT_EQ(CVariant::GetFloatArray(&out, back, &ok, wrong), 0);
        EXPECT_TRUE(!ok && back == vector) << "what was there stays";
    }
    EXPECT_EQ(CVariant::CreateFloatArray(nullptr, vector, 3), 0);
}

TEST(CVariant, MatricesThereAndBack) {
    SAFEARRAYBOUND bounds[] = {{3, 3}, {3, -2}};
    Value in(SafeArrayCreate(VT_I2, 2, bounds), VT_I2), out;
    for (std::int16_t i = 0; i < 9; ++i) {
        LONG at[] = {i / 3 + 3, i % 3 - 2};
        SafeArrayPutElement(in.parray, at, &i);
    }
    FMatrix matrix(3, 3);
    bool ok = false;
    ASSERT_EQ(CVariant::GetFloatMatrix(&in, matrix, &ok, 3), 1);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(matrix[i / 3][i % 3], static_cast<float>(i));
    ASSERT_EQ(CVariant::CreateFloatMatrix(&out, matrix, 2), 1);
    LONG at[] = {1, 0};
    float number = 0;
    EXPECT_TRUE(SafeArrayGetElement(out.parray, at, &number) == S_OK && number == 3.0F);
    EXPECT_EQ(CVariant::GetFloatMatrix(&out, matrix, nullptr, 3), 0) << "only two rows";
    EXPECT_EQ(CVariant::CreateFloatMatrix(&out, matrix, 4), 0);
    EXPECT_EQ(CVariant::CreateFloatMatrix(&out, FMatrix(3, 2), 3), 0);
}

TEST(CVariant, ArraysOfAnythingElse) {
    Value mixed(SafeArrayCreateVector(VT_VARIANT, -1, 2), VT_VARIANT), text("2.5"), number(4.0), word("x");
    LONG at = -1;
    SafeArrayPutElement(mixed.parray, &at, &text);
    ++at;
    SafeArrayPutElement(mixed.parray, &at, &number);
    FVector vector;
    EXPECT_EQ(CVariant::GetFloatArray(&mixed, vector, nullptr, 3), 0) << "only two";
    ASSERT_EQ(CVariant::GetFloatArray(&mixed, vector, nullptr, 2), 1);
    EXPECT_TRUE(vector[0] == 2.5F && vector[1] == 4.0F);
    SafeArrayPutElement(mixed.parray, &at, &word);
    EXPECT_EQ(CVariant::GetFloatArray(&mixed, vector, nullptr, 2), 0);
    SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}, {2, 0}};
    Value cube(SafeArrayCreate(VT_R4, 3, bounds), VT_R4), nothing(nullptr, VT_R4);
    FMatrix matrix(2, 2);
    for (Value* wrong : {&cube, &nothing, &text, &mixed, static_cast<Value*>(nullptr)}) {
        EXPECT_EQ(CVariant::GetFloatMatrix(wrong, matrix, nullptr, 2), 0);
        EXPECT_EQ(CVariant::GetFloatArray(wrong, vector, nullptr, 2), 0);
    }
}
