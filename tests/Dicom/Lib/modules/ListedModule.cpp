// A codec module for tests: one codec, whose name the build defines, or a module without the functions that the manager
// calls.
#include <Korvane/Dicom/Lib/pixels/CodecModule.h>

#include <cstring>

extern "C" {
#if LISTED_WHOLE
DCM_CODEC_EXPORT int DcmGetCodecCount() {
    return 1;
}
#endif
DCM_CODEC_EXPORT int DcmGetCodecProps(int index, DcmCodecProps* props) {
    std::strcpy(props->transferSyntax, LISTED_UID);
    props->version = DCM_CODEC_VERSION;
    return index == 0;
}
}
