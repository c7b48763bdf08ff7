#include "JpegBitReader.h"

JpegBitReader JpegBitReader::FilledByBytes(JpegBitReader reader) {
    while (reader.count <= 56) {
        std::uint64_t byte = 0;
        if (reader.at == reader.end || (*reader.at == 0xFF && (reader.end - reader.at < 2 || reader.at[1] != 0))) {
            reader.padding += 8;  // a marker or the end
        } else {
            byte = *reader.at;
            reader.at += byte == 0xFF ? 2 : 1;
        }
        reader.bits |= byte << (56 - reader.count);
        reader.count += 8;
    }
    return reader;
}
