#include "StoreAnswer.h"

#include "../dataset/DataSet.h"

#include <map>

namespace korvane {

std::vector<StoreVerdict> ReadStoreAnswer(std::string_view json, const std::vector<std::string>& instances) {
    std::map<std::string, StoreVerdict> named;
    const auto reasonOf = [](const DataSetView& item, const char* keyword) {
        const std::vector<std::int64_t> values = item.Integers(keyword);
        return static_cast<std::uint16_t>(values.empty() ? 0 : values.front());
    };
    for (const DataSet& answer : DataSet::ListFromJson(json)) {
        for (const DataSetView& item : answer.Items("ReferencedSOPSequence")) {
            const std::uint16_t reason = reasonOf(item, "WarningReason");
            const auto kind = reason != 0 ? StoreVerdict::Kind::Warned : StoreVerdict::Kind::Stored;
            named.try_emplace(item.Text("ReferencedSOPInstanceUID"), StoreVerdict{kind, reason});
        }
        for (const DataSetView& item : answer.Items("FailedSOPSequence")) {
            named[item.Text("ReferencedSOPInstanceUID")] = {StoreVerdict::Kind::Failed,
                                                            reasonOf(item, "FailureReason")};
        }
    }
    std::vector<StoreVerdict> verdicts;
    for (const std::string& instance : instances) {
        const auto found = named.find(instance);
        verdicts.push_back(found != named.end() ? found->second : StoreVerdict{});
    }
    return verdicts;
}

}  // namespace korvane
