#include "../core/Error.h"
#include "../core/JsonText.h"
#include "Base64.h"
#include "DataSet.h"
#include "Toolkit.h"

#include <nlohmann/json.hpp>

#include <charconv>

namespace korvane {

namespace {

using Json = nlohmann::json;

constexpr int kDeepest = 64;

[[noreturn]] void Refuse(const std::string& key, const std::string& why) {
    throw Error(ErrorKind::Damaged, "JSON, " + key + ": " + why);
}

// A value of the array as the text that `DataSet::Set` takes.
std::string TextOf(const std::string& key, const Json& value) {
    if (value.is_null()) return {};
    if (value.is_string()) return value.get<std::string>();
    if (value.is_number_integer() || value.is_number_float()) return value.dump();
    if (!value.is_object()) Refuse(key, "a value of no known form");
    std::string name;
    for (const char* const group : {"Alphabetic", "Ideographic", "Phonetic"}) {
        name += value.contains(group) && value[group].is_string() ? value[group].get<std::string>() : std::string();
        name += '=';
    }
    while (!name.empty() && name.back() == '=') name.pop_back();
    return name;
}

class JsonReading {
public:
    explicit JsonReading(const Json& object) {
        set.Set("SpecificCharacterSet", "ISO_IR 192");
        AddMembers({}, object, 0);
    }

    DataSet set;
    std::vector<std::string> elsewhere;  // paths of elements whose values are not in the JSON

private:
    void AddMembers(const std::string& prefix, const Json& object, int depth) {
        if (!object.is_object() || depth > kDeepest) Refuse(prefix, "not a data set, or nested too deep");
        for (const auto& [key, member] : object.items()) {
            std::uint32_t tag = 0;
            const auto result = std::from_chars(key.data(), key.data() + key.size(), tag, 16);
            if (key.size() != 8 || result.ec != std::errc() || result.ptr != key.data() + 8)
                Refuse(prefix + key, "not a tag");
            if (!member.is_object()) Refuse(prefix + key, "not an element");
            if (tag == 0x00080005) continue;
            AddElement(prefix + key, key, member, depth);
        }
    }

    void AddElement(const std::string& path, const std::string& key, const Json& member, int depth) {
        const Json letters = member.contains("vr") ? member["vr"] : Json("UN");
        const std::string type = letters.is_string() ? letters.get<std::string>() : std::string();
        if (type.size() != 2) Refuse(path, "its \"vr\" is no type");
        if (member.contains("BulkDataURI")) {
            elsewhere.push_back(path);
            return;
        }
        if (member.contains("InlineBinary")) {
            const Json& inner = member["InlineBinary"];
            const auto bytes = inner.is_string() ? FromBase64(inner.get_ref<const std::string&>()) : std::nullopt;
            if (!bytes) Refuse(path, "its \"InlineBinary\" is not base 64");
            set.SetBytes(path, {reinterpret_cast<const unsigned char*>(bytes->data()), bytes->size()}, type);
            return;
        }
        set.SetBytes(path, {}, type);
        if (!member.contains("Value")) return;
        const Json& values = member["Value"];
        if (!values.is_array()) Refuse(path, "its \"Value\" is no array");
        if (type == "SQ") {
            for (std::size_t i = 0; i < values.size(); ++i) {
                set.AddItem(path);
                AddMembers(path + '[' + std::to_string(i) + "].", values[i], depth + 1);
            }
            return;
        }
        std::string text;
        for (std::size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : "\\") + TextOf(key, values[i]);
        set.SetUnchecked(path, text);
    }
};

}  // namespace

DataSet DataSet::WithoutValuesOf(DataSet set, const std::vector<std::string>& elsewhere) {
    for (const std::string& path : elsewhere) {
        set.m_Report.complete = false;
        set.m_Report.findings.push_back(
            {.kind = FindingKind::Unreadable, .text = path + ": its value is elsewhere (BulkDataURI) and left out"});
    }
    return set;
}

DataSet DataSet::FromJson(std::string_view json) {
    const Json object = ParsedJson<Json>(json);
    if (object.is_discarded()) throw Error(ErrorKind::Damaged, "not JSON, or nested too deep");
    JsonReading reading(object);
    return WithoutValuesOf(std::move(reading.set), reading.elsewhere);
}

std::vector<DataSet> DataSet::ListFromJson(std::string_view json) {
    const Json list = ParsedJson<Json>(json);
    if (list.is_discarded()) throw Error(ErrorKind::Damaged, "not JSON, or nested too deep");
    if (!list.is_array() && !list.is_object()) throw Error(ErrorKind::Damaged, "JSON that is no data set");
    std::vector<DataSet> sets;
    const auto add = [&](const Json& object) {
        JsonReading reading(object);
        sets.push_back(WithoutValuesOf(std::move(reading.set), reading.elsewhere));
    };
    if (list.is_object()) {
        add(list);
    } else {
        for (const Json& object : list) add(object);
    }
    return sets;
}

}  // namespace korvane
