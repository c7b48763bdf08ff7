#include "DcmtkRle.h"

#if defined(BENCH_DCMTK)
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmdata/dctk.h>

#include <chrono>

double SecondsOfDcmtkRle(const std::string& path) {
    DcmRLEDecoderRegistration::registerCodecs();
    DcmFileFormat file;
    file.loadFile(path.c_str());
    file.loadAllDataIntoMemory();
    const auto begin = std::chrono::steady_clock::now();
    if (file.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, nullptr).bad()) return 0;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}
#else
double SecondsOfDcmtkRle(const std::string& /*path*/) {
    return 0;
}
#endif
