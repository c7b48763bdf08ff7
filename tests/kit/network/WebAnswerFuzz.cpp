// libFuzzer: any text as the answer of a web service to a query or to a request for storage.
#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/network/StoreAnswer.h>
#include <Korvane/kit/network/WebAddress.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

using namespace korvane;

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = (*arguments)[*argumentCount - 1];
    if (!std::filesystem::is_directory(corpus) || !std::filesystem::is_empty(corpus)) return 0;
    const std::string uid = R"("00081155":{"vr":"UI","Value":["1.2"]})";
    std::ofstream(corpus + "/stored") << R"({"00081199":{"vr":"SQ","Value":[{)" << uid
                                      << R"(,"00081196":{"vr":"US","Value":[45056]}}]}})";
    std::ofstream(corpus + "/failed") << R"([{"00081198":{"vr":"SQ","Value":[{)" << uid
                                      << R"(,"00081197":{"vr":"US","Value":[290]}}]}}])";
    std::ofstream(corpus + "/found")
        << R"([{"0020000D":{"vr":"UI","Value":["1.2"]},"00100010":{"vr":"PN","Value":[{}]}}])";
    std::ofstream(corpus + "/address") << "https://[::1]:443/a/b?c#d";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const std::string text(reinterpret_cast<const char*>(bytes), count);
    try {
        const auto verdicts = ReadStoreAnswer(text, {"1.2", "1.3"});
        if (verdicts.size() != 2) std::abort();
    } catch (const Error&) {
    }
    try {
        for (const DataSet& set : DataSet::ListFromJson(text)) {
            for (const char* const key : {"StudyInstanceUID", "PatientName", "ModalitiesInStudy"}) set.Texts(key);
        }
    } catch (const Error&) {
    }
    static const WebAddress s_Base("https://pacs:8443/web");
    const std::string target = SameOriginTarget(s_Base, text);
    if (!target.empty() && !target.starts_with("https://pacs:8443/")) std::abort();
    try {
        const WebAddress address(text);
        if (WebAddress(address.Below("")).GetOrigin() != address.GetOrigin()) std::abort();
    } catch (const Error&) {
    }
    return 0;
}
