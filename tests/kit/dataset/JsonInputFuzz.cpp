// libFuzzer: any text as the DICOM JSON model. What is taken must come back the same from its own JSON, and can be saved.
#include "../../FuzzCorpus.h"

#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/dataset/DataSet.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

using namespace korvane;

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    std::ofstream(corpus + "/texts") << R"({"00100010":{"vr":"PN","Value":[{"Alphabetic":"A^B","Ideographic":"C"}]},)"
                                     << R"("00081115":{"vr":"SQ","Value":[{"0020000E":{"vr":"UI","Value":["1.2"]}}]}})";
    std::ofstream(corpus + "/numbers") << R"({"00280010":{"vr":"US","Value":[512]},"00180050":{"vr":"DS","Value":)"
                                       << R"([0.5,"1e3",null]},"00091001":{"vr":"SV","Value":["-9007199254740993"]},)"
                                       << R"("00720074":{"vr":"FD","Value":["NaN",-1.5e300]}})";
    std::ofstream(corpus + "/bytes") << R"({"7FE00010":{"vr":"OW","InlineBinary":"AAECAw=="},"00280009":{"vr":"AT",)"
                                     << R"("Value":["00181063"]},"00420011":{"vr":"OB","BulkDataURI":"file:x"}})";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    try {
        const DataSet set = DataSet::FromJson({reinterpret_cast<const char*>(bytes), count});
        const std::string json = set.ToJson();
        const DataSet again = DataSet::FromJson(json);
        if (again.ToJson() != json) std::abort();
        std::ostringstream out;
        set.Save(out);
    } catch (const Error&) {
    }
    return 0;
}
