#include "host/JsonWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>

namespace {

std::string Written(const std::function<void(JsonWriter&)>& write) {
    std::FILE* const file = std::tmpfile();
    JsonWriter json(file);
    write(json);
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
    std::fclose(file);
    return text;
}

TEST(JsonWriterTest, NestsAndSeparates) {
    EXPECT_EQ(Written([](JsonWriter& json) {
                  json.BeginObject();
                  json.Key("a").BeginArray();
                  json.Integer(-1);
                  json.Null();
                  json.Bool(true);
                  json.EndArray();
                  json.Key("b").BeginObject();
                  json.EndObject();
                  json.EndObject();
              }),
              "{\n \"a\": [-1, null, true],\n \"b\": {}\n}\n");
}

TEST(JsonWriterTest, EscapesWhatStringsMustNotHold) {
    EXPECT_EQ(Written([](JsonWriter& json) { json.String("\"\\\n\x01\x7F\xC3\xA4"); }),
              "\"\\\"\\\\\\u000a\\u0001\\u007f\xC3\xA4\"");
    EXPECT_EQ(Written([](JsonWriter& json) { json.Real(std::numeric_limits<double>::infinity()); }), "null");
}

TEST(JsonWriterTest, Base64InPartsOfAnyLengthIsThatOfTheWhole) {
    const std::string bytes = "\x01\x02\xFF" + std::string(30000, '\x80') + "tail";
    const auto inPartsOf = [&](std::size_t length) {
        return Written([&](JsonWriter& json) {
            json.BeginBase64();
            for (std::size_t i = 0; i < bytes.size(); i += length)
                json.Base64(std::string_view(bytes).substr(i, length));
            json.EndBase64();
        });
    };
    const std::string whole = inPartsOf(bytes.size());
    EXPECT_TRUE(whole.starts_with("\"AQL/gICA"));
    EXPECT_TRUE(whole.ends_with("dGFpbA==\"") || whole.ends_with("gHRhaWw=\"") || whole.ends_with("gIB0YWls\""))
        << whole;
    EXPECT_EQ(whole.size(), 2 + (bytes.size() + 2) / 3 * 4);
    for (const std::size_t length : {1U, 2U, 4U, 12289U}) EXPECT_EQ(inPartsOf(length), whole) << length;
}

}  // namespace
