// libFuzzer: data sets with all leniencies, what their unknown and private elements are opened as, and what comes back of
// their JSON and of their saved form.
#include "../../FuzzCorpus.h"

#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/dataset/DataSet.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace korvane;

namespace {

std::vector<unsigned char> BytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

DataSet Made() {
    DataSet set;
    set.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.4");
    set.Set("SOPInstanceUID", "1.2.3.4");
    set.SetBytes("0019,0010", BytesOf("SIEMENS MR HEADER "), "UN");
    set.SetBytes("0019,100C", BytesOf("1000"), "UN");
    set.SetBytes("0008,1115", BytesOf(std::string("\xFE\xFF\0\xE0\x0C\0\0\0\x20\0\x0E\0\4\0\0\0001.2\0", 20)), "UN");
    return set;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    for (const char* const syntax : {"explicit", "implicit", "big"}) {
        std::ofstream out(corpus + "/" + syntax, std::ios::binary);
        Made().Save(out, {.syntax = syntax});
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    try {
        const DataSet set = DataSet::Parse({bytes, count});
        std::size_t elements = 0;
        set.Walk([&elements](const ElementFacts& facts) { elements += facts.name.empty() ? 0 : 1; });
        const DataSet again = DataSet::FromJson(set.ToJson());
        if (again.ToJson().empty()) std::abort();
        std::ostringstream out;
        if (set.GetReport().complete) set.Save(out);
    } catch (const Error&) {
    }
    return 0;
}
