#include "../core/Error.h"
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

void AddElement(DataSet& set, const std::string& path, const std::string& key, const Json& member, int depth);

void AddMembers(DataSet& set, const std::string& prefix, const Json& object, int depth) {
    if (!object.is_object() || depth > kDeepest) Refuse(prefix, "not a data set, or nested too deep");
    for (const auto& [key, member] : object.items()) {
        std::uint32_t tag = 0;
        const auto result = std::from_chars(key.data(), key.data() + key.size(), tag, 16);
        if (key.size() != 8 || result.ec != std::errc() || result.ptr != key.data() + 8)
            Refuse(prefix + key, "not a tag");
        if (tag == 0x00080005 || !member.is_object()) continue;
        AddElement(set, prefix + key, key, member, depth);
    }
}

void AddElement(DataSet& set, const std::string& path, const std::string& key, const Json& member, int depth) {
    const std::string type = member.value("vr", std::string("UN"));
    if (type.size() != 2) Refuse(path, "its \"vr\" is no type");
    if (member.contains("InlineBinary") && member["InlineBinary"].is_string()) {
        const std::optional<std::string> bytes = FromBase64(member["InlineBinary"].get_ref<const std::string&>());
        if (!bytes) Refuse(path, "its \"InlineBinary\" is not base 64");
        set.SetBytes(path, {reinterpret_cast<const unsigned char*>(bytes->data()), bytes->size()}, type);
        return;
    }
    set.SetBytes(path, {}, type);
    if (!member.contains("Value") || !member["Value"].is_array()) return;
    const Json& values = member["Value"];
    if (type == "SQ") {
        for (std::size_t i = 0; i < values.size(); ++i) {
            set.AddItem(path);
            AddMembers(set, path + '[' + std::to_string(i) + "].", values[i], depth + 1);
        }
        return;
    }
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : "\\") + TextOf(key, values[i]);
    set.SetUnchecked(path, text);
}

}  // namespace

DataSet DataSet::FromJson(std::string_view json) {
    const Json object = Json::parse(json.begin(), json.end(), nullptr, false);
    if (object.is_discarded()) throw Error(ErrorKind::Damaged, "not JSON");
    DataSet set;
    set.Set("SpecificCharacterSet", "ISO_IR 192");
    AddMembers(set, {}, object, 0);
    return set;
}

}  // namespace korvane
