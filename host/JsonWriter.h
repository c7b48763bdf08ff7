// JSON (RFC 8259) written as it is made, so that a large data set is never held as a tree.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// Objects and arrays are opened and closed; in an object each value has its key in front. Failures show in the stream.
class JsonWriter {
public:
    explicit JsonWriter(std::FILE* out) : m_pOut(out) {}

    void BeginObject() { Begin('{', true); }
    void EndObject() { End('}'); }
    /// With `lines` each member has a line of its own.
    void BeginArray(bool lines = false) { Begin('[', lines); }
    void EndArray() { End(']'); }

    JsonWriter& Key(std::string_view key);

    /// Must be UTF-8.
    void String(std::string_view text);
    void Integer(long long value) { Literal(std::to_string(value)); }
    void Bool(bool value) { Literal(value ? "true" : "false"); }
    void Null() { Literal("null"); }
    /// Null for what JSON has no number for.
    void Real(double value);
    /// A number as text, or another literal, as it is.
    void Literal(std::string_view text);

    /// A string of bytes in base 64 (RFC 4648 4), given in parts.
    void BeginBase64();
    void Base64(std::string_view bytes);
    void EndBase64();

private:
    void Begin(char bracket, bool lines);
    void End(char bracket);
    void Separate();
    void Put(std::string_view text) { std::fwrite(text.data(), 1, text.size(), m_pOut); }

    std::FILE* m_pOut;
    std::string m_Open;  // for each open bracket: its kind of layout and whether a member was written
    std::string m_Rest;  // bytes of an unfinished base-64 group
    bool m_bAfterKey = false;
};
