// Vectors and matrices as automation values, and back.
#include "Values.h"

#include <vector>

namespace {

/// n x n numbers that differ, as an array with lower bounds 3 and -2.
void MakeMatrix(Value& out, LONG n) {
    SAFEARRAYBOUND bounds[] = {{static_cast<ULONG>(n), 3}, {static_cast<ULONG>(n), -2}};
    out.vt = VT_ARRAY | VT_I2;
    out.parray = SafeArrayCreate(VT_I2, 2, bounds);
    for (LONG i = 0; i < n; ++i) {
        for (LONG j = 0; j < n; ++j) {
            LONG at[] = {i + 3, j - 2};
            auto number = static_cast<std::int16_t>(10 * i + j);
            SafeArrayPutElement(out.parray, at, &number);
        }
    }
}

}  // namespace

TEST(CVariant, FloatsOfAnyNumber) {
    Value text("1.5"), number(-7), word("x");
    EXPECT_EQ(CVariant::GetFloat(&text), 1.5F);
    EXPECT_EQ(CVariant::GetFloat(&number), -7.0F);
    EXPECT_EQ(CVariant::GetFloat(&word), 0.0F);
    EXPECT_EQ(CVariant::GetFloat(nullptr), 0.0F);
}

TEST(CVariant, VectorsThereAndBack) {
    const float numbers[] = {1.5F, -2, 3e20F};
    const FVector vector(numbers, 3);
    Value out("was a text");
    ASSERT_EQ(CVariant::CreateFloatArray(&out, vector, 3), 1);
    ASSERT_EQ(out.vt, VT_ARRAY | VT_R4);
    LONG first = 1, last = 0;
    SafeArrayGetLBound(out.parray, 1, &first);
    SafeArrayGetUBound(out.parray, 1, &last);
    EXPECT_EQ(std::vector<int>({static_cast<int>(first), static_cast<int>(last)}), std::vector<int>({0, 2}));
    FVector back;
    bool ok = false;
    EXPECT_EQ(CVariant::GetFloatArray(&out, back, &ok, 3), 1);
    EXPECT_TRUE(ok);
    EXPECT_EQ(back, vector);
    for (const int wrong : {4, 0, -1}) {
        EXPECT_EQ(CVariant::CreateFloatArray(&out, vector, wrong), 0);
        EXPECT_EQ(CVariant::GetFloatArray(&out, back, &ok, wrong), 0);
        EXPECT_FALSE(ok);
        EXPECT_EQ(back, vector) << "what was there stays";
    }
}

TEST(CVariant, MatricesThereAndBack) {
    Value in;
    MakeMatrix(in, 3);
    FMatrix matrix(3, 3);
    bool ok = false;
    ASSERT_EQ(CVariant::GetFloatMatrix(&in, matrix, &ok, 3), 1);
    EXPECT_TRUE(ok);
    EXPECT_EQ(matrix[2][1], 21.0F);
    EXPECT_EQ(matrix[1][2], 12.0F);
    Value out;
    ASSERT_EQ(CVariant::CreateFloatMatrix(&out, matrix, 2), 1);
    LONG at[] = {1, 0};
    float number = 0;
    ASSERT_EQ(SafeArrayGetElement(out.parray, at, &number), S_OK);
    EXPECT_EQ(number, 10.0F);
    EXPECT_EQ(SafeArrayGetDim(out.parray), 2u);
    EXPECT_EQ(CVariant::GetFloatMatrix(&out, matrix, nullptr, 3), 0) << "only two rows";
    EXPECT_EQ(CVariant::CreateFloatMatrix(&out, matrix, 4), 0);
    EXPECT_EQ(CVariant::CreateFloatArray(nullptr, FVector(3), 3), 0);
}

TEST(CVariant, ArraysOfAnythingElse) {
    Value mixed;
    mixed.vt = VT_ARRAY | VT_VARIANT;
    mixed.parray = SafeArrayCreateVector(VT_VARIANT, -1, 2);
    Value text("2.5"), number(4), word("x");
    LONG at = -1;
    SafeArrayPutElement(mixed.parray, &at, &text);
    ++at;
    SafeArrayPutElement(mixed.parray, &at, &number);
    FVector vector;
    ASSERT_EQ(CVariant::GetFloatArray(&mixed, vector, nullptr, 2), 1);
    EXPECT_EQ(vector[0], 2.5F);
    EXPECT_EQ(vector[1], 4.0F);
    SafeArrayPutElement(mixed.parray, &at, &word);
    EXPECT_EQ(CVariant::GetFloatArray(&mixed, vector, nullptr, 2), 0);

    SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}, {2, 0}};
    Value cube;
    cube.vt = VT_ARRAY | VT_R4;
    cube.parray = SafeArrayCreate(VT_R4, 3, bounds);
    FMatrix matrix(2, 2);
    Value nothing;
    nothing.vt = VT_ARRAY | VT_R4;
    nothing.parray = nullptr;
    for (Value* wrong : {&cube, &nothing, &text, &mixed}) {
        EXPECT_EQ(CVariant::GetFloatMatrix(wrong, matrix, nullptr, 2), 0);
    }
    EXPECT_EQ(CVariant::GetFloatArray(&cube, vector, nullptr, 2), 0);
    EXPECT_EQ(CVariant::GetFloatArray(nullptr, vector, nullptr, 2), 0);
}
