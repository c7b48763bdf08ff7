#include "ImageFormat.h"

#include "Dicom/Lib/dataset/ReplaceValue.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/syntax/TransferSyntaxRow.h"
#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr std::uint64_t kLargestFrame = 0x7FFFFFFF;
constexpr std::uint64_t kLargestValue = 0xFFFFFFFE;
constexpr std::string_view kCommonMethod = "ISO_10918_1";

std::uint32_t NumberOr(const DICOMObject& dataSet, tags::Tag tag, std::uint32_t otherwise) {
    return dataSet.GetVR(tag) != nullptr ? dataSet.GetUINT16(tag) : otherwise;
}

int WriteNumber(DICOMObject& dataSet, tags::Tag tag, std::uint32_t value) {
    const unsigned char bytes[] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
    return ReplaceValue(dataSet, tag, TypeCode("US"), bytes, sizeof bytes);
}

bool FitsIntoBits(const DcmFrameFormat& frame) {
    return frame.bitsStored >= 1 && frame.bitsStored <= frame.bitsAllocated;
}

std::string CheckLimits(const DcmFrameFormat& frame) {
    const auto number = [](std::uint32_t value) { return std::to_string(value); };
    if (frame.rows == 0 || frame.columns == 0) return "an image without rows or columns";
    if (frame.samplesPerPixel < 1 || frame.samplesPerPixel > 4) {
        return number(frame.samplesPerPixel) + " samples a pixel";
    }
    if (frame.bitsAllocated != 8 && frame.bitsAllocated != 16 && frame.bitsAllocated != 32) {
        return "no codec is for " + number(frame.bitsAllocated) + " bits allocated";
    }
    if (!FitsIntoBits(frame)) {
        return number(frame.bitsStored) + " bits stored of " + number(frame.bitsAllocated);
    }
    if (frame.pixelRepresentation > 1 || frame.planarConfiguration > 1) return "an unknown form of pixels";
    return {};
}

/// Codecs of other makers may lose something in any syntax; most pictures that did are JPEG.
std::string_view LossyMethod(std::string_view syntax) {
    const TransferSyntaxRow* const row = FindSyntaxRow(syntax);
    return row != nullptr && !row->lossyMethod.empty() ? row->lossyMethod : kCommonMethod;
}

}  // namespace

std::string ReadImageFormat(const DICOMObject& dataSet, ImageFormat& format) {
    DcmFrameFormat& frame = format.frame;
    frame = DcmFrameFormat{};
    frame.size = sizeof frame;
    frame.samplesPerPixel = NumberOr(dataSet, tags::SamplesPerPixel, 1);
    frame.rows = NumberOr(dataSet, tags::Rows, 0);
    frame.columns = NumberOr(dataSet, tags::Columns, 0);
    frame.bitsAllocated = NumberOr(dataSet, tags::BitsAllocated, 0);
    frame.bitsStored = NumberOr(dataSet, tags::BitsStored, frame.bitsAllocated);
    frame.highBit = NumberOr(dataSet, tags::HighBit, frame.bitsStored - 1);
    frame.pixelRepresentation = NumberOr(dataSet, tags::PixelRepresentation, 0);
    frame.planarConfiguration = NumberOr(dataSet, tags::PlanarConfiguration, 0);
    const std::string photometric = TextOf(dataSet, tags::PhotometricInterpretation);
    if (photometric.size() >= sizeof frame.photometric) return "an unknown photometric interpretation";
    std::copy(photometric.begin(), photometric.end(), frame.photometric);
    if (std::string fault = CheckLimits(frame); !fault.empty()) return fault;
    const std::string frames = TextOf(dataSet, tags::NumberOfFrames);
    format.frames = static_cast<std::uint32_t>(frames.empty() ? 1 : std::max(platform::ParseInteger(frames), 1));
    format.frameBytes = std::uint64_t{frame.rows} * frame.columns * frame.samplesPerPixel * (frame.bitsAllocated / 8);
    if (format.frameBytes > kLargestFrame) return "a frame of " + std::to_string(format.frameBytes) + " bytes";
    if (format.TotalBytes() > kLargestValue) {
        return std::to_string(format.frames) + " frames of " + std::to_string(format.frameBytes) +
               " bytes, more than one value can hold";
    }
    return {};
}

bool IsAllowedChange(const DcmFrameFormat& before, const DcmFrameFormat& after) {
    const bool isSameMatrix = after.columns == before.columns && after.rows == before.rows &&
                              after.samplesPerPixel == before.samplesPerPixel &&
                              after.bitsAllocated == before.bitsAllocated;
    const char* const end = std::find(after.photometric, std::end(after.photometric), '\0');
    const auto isOfCodeString = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ' ';
    };
    const bool isWellNamed =
        std::equal(std::begin(before.photometric), std::end(before.photometric), after.photometric) ||
        (end != std::end(after.photometric) && std::all_of(after.photometric, end, isOfCodeString));
    return isSameMatrix && isWellNamed && FitsIntoBits(after) &&
           (after.highBit == before.highBit || after.highBit < after.bitsAllocated) && after.pixelRepresentation <= 1 &&
           after.planarConfiguration <= 1 && after.lossy <= 1;
}

int WriteChanges(DICOMObject& dataSet, const DcmFrameFormat& before, const DcmFrameFormat& after) {
    int done = 1;
    if (std::strcmp(before.photometric, after.photometric) != 0) {
        done &= ReplaceText(dataSet, tags::PhotometricInterpretation, TypeCode("CS"), after.photometric);
    }
    const auto number = [&](tags::Tag tag, std::uint32_t DcmFrameFormat::*field) {
        if (before.*field != after.*field) done &= WriteNumber(dataSet, tag, after.*field);
    };
    number(tags::PlanarConfiguration, &DcmFrameFormat::planarConfiguration);
    number(tags::BitsStored, &DcmFrameFormat::bitsStored);
    number(tags::HighBit, &DcmFrameFormat::highBit);
    number(tags::PixelRepresentation, &DcmFrameFormat::pixelRepresentation);
    return done;
}

int MarkAsLossy(DICOMObject& dataSet, double ratio, std::string_view syntax) {
    int done = ReplaceText(dataSet, tags::LossyImageCompression, TypeCode("CS"), "01");
    if (TextOf(dataSet, tags::LossyImageCompressionRatio).empty()) {
        const double rounded = std::round(ratio * 100) / 100;
        done &= ReplaceText(dataSet, tags::LossyImageCompressionRatio, TypeCode("DS"), platform::FormatReal(rounded));
    }
    if (TextOf(dataSet, tags::LossyImageCompressionMethod).empty()) {
        done &= ReplaceText(dataSet, tags::LossyImageCompressionMethod, TypeCode("CS"), LossyMethod(syntax));
    }
    return done;
}
