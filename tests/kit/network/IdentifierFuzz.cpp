// libFuzzer: data sets that peers send behind commands, as answers to queries and as requests and reports of commitment. The
// first byte chooses the transfer syntax.
#include <Korvane/kit/network/CommitmentData.h>
#include <Korvane/kit/network/DataSetMessages.h>

#include <Korvane/kit/core/Error.h>

#include <cstdlib>

using namespace korvane;

namespace {

constexpr const char* kSyntaxes[] = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2"};

// What was read comes back the same when it is sent on.
void SendOn(const CommitmentData& data) {
    const DataSet made = MakeCommitment(data);
    const auto again = ReadCommitment(made.Toolkit());
    if (!again || again->items.size() != data.items.size() || again->CountFailed() != data.CountFailed()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    if (count == 0) return 0;
    auto parsed = ParseDataSet(kSyntaxes[bytes[0] % 3], {bytes + 1, count - 1});
    if (parsed == nullptr) return 0;
    if (const auto data = ReadCommitment(*parsed)) SendOn(*data);
    const DataSet match = DataSet::FromToolkit(std::move(parsed));
    try {
        const std::string json = match.ToJson();
        for (const char* const key : {"PatientName", "StudyInstanceUID", "NumberOfStudyRelatedInstances",
                                      "ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartDate"}) {
            if (!match.Text(key).empty() && json.size() < 3) std::abort();
        }
    } catch (const Error&) {  // texts beyond what a character set allows
    }
    return 0;
}
