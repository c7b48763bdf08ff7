// Whether a program that links the toolkit archive alone has a codec for RLE.
#include <Korvane/Dicom.h>

int main() {
    return CodecManager::CanDecode("1.2.840.10008.1.2.5") ? 0 : 1;
}
