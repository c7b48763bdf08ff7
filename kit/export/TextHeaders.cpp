// The headers of NRRD and MetaImage files, which are lines of text before the voxels. Both have patient axes as DICOM does.
#include "VoxelGrid.h"

#include "base/Number.h"

#include <cmath>

namespace korvane {

namespace {

std::string VectorText(const Volume::Vector& v, const char* separator) {
    return platform::FormatReal(v[0]) + separator + platform::FormatReal(v[1]) + separator + platform::FormatReal(v[2]);
}

std::string Sizes(const VoxelGrid& grid) {
    std::string text;
    const std::size_t count = grid.size[3] > 1 ? 4 : 3;
    for (std::size_t i = 0; i < count; ++i) text += (i > 0 ? " " : "") + std::to_string(grid.size[i]);
    return text;
}

const char* NrrdType(VoxelType type) {
    switch (type) {
    case VoxelType::Int8: return "int8";
    case VoxelType::UInt8: return "uint8";
    case VoxelType::Int16: return "int16";
    case VoxelType::UInt16: return "uint16";
    case VoxelType::Int32: return "int32";
    case VoxelType::UInt32: return "uint32";
    case VoxelType::Float32: return "float";
    case VoxelType::Float64: return "double";
    case VoxelType::Rgb24: return "uint8";
    }
    return "";
}

const char* MetaType(VoxelType type) {
    switch (type) {
    case VoxelType::Int8: return "MET_CHAR";
    case VoxelType::UInt8: return "MET_UCHAR";
    case VoxelType::Int16: return "MET_SHORT";
    case VoxelType::UInt16: return "MET_USHORT";
    case VoxelType::Int32: return "MET_INT";
    case VoxelType::UInt32: return "MET_UINT";
    case VoxelType::Float32: return "MET_FLOAT";
    case VoxelType::Float64: return "MET_DOUBLE";
    case VoxelType::Rgb24: return "MET_UCHAR";
    }
    return "";
}

}  // namespace

std::string MakeNrrdHeader(const VoxelGrid& grid, bool gzip) {
    const bool colour = grid.type == VoxelType::Rgb24;
    const bool timed = grid.size[3] > 1;
    std::string text = "NRRD0004\ntype: ";
    text += NrrdType(grid.type);
    text += "\ndimension: " + std::to_string(3 + (colour ? 1 : 0) + (timed ? 1 : 0)) + "\n";
    text += "space: left-posterior-superior\n";
    text += "sizes: " + std::string(colour ? "3 " : "") + Sizes(grid) + "\n";
    text += "space directions:" + std::string(colour ? " none" : "");
    for (const Volume::Vector& step : grid.steps) text += " (" + VectorText(step, ",") + ")";
    text += timed ? " none\n" : "\n";
    text += "kinds:" + std::string(colour ? " RGB-color" : "") + " domain domain domain" + (timed ? " time\n" : "\n");
    text += "space origin: (" + VectorText(grid.origin, ",") + ")\n";
    if (SizeOf(grid.type) > 1 && !colour) text += "endian: little\n";
    text += std::string("encoding: ") + (gzip ? "gzip" : "raw") + "\n";
    if (timed && grid.timeStep > 0) text += "time step in seconds:=" + platform::FormatReal(grid.timeStep) + "\n";
    if (grid.rescale != Rescale{}) {
        text += "rescale slope:=" + platform::FormatReal(grid.rescale.slope) + "\n";
        text += "rescale intercept:=" + platform::FormatReal(grid.rescale.intercept) + "\n";
    }
    return text + "\n";
}

std::string MakeMetaImageHeader(const VoxelGrid& grid) {
    const bool timed = grid.size[3] > 1;
    std::string matrix;
    std::string spacing;
    for (const Volume::Vector& step : grid.steps) {
        const double length = std::hypot(step[0], step[1], step[2]);
        matrix += " " + VectorText({step[0] / length, step[1] / length, step[2] / length}, " ") + (timed ? " 0" : "");
        spacing += " " + platform::FormatReal(length);
    }
    if (timed) {
        matrix += " 0 0 0 1";
        spacing += " " + platform::FormatReal(grid.timeStep > 0 ? grid.timeStep : 1);
    }
    std::string text = "ObjectType = Image\nNDims = " + std::to_string(timed ? 4 : 3) + "\n";
    text += "BinaryData = True\nBinaryDataByteOrderMSB = False\nCompressedData = False\n";
    text += "TransformMatrix =" + matrix + "\n";
    text += "Offset = " + VectorText(grid.origin, " ") + (timed ? " 0\n" : "\n");
    text += "CenterOfRotation = 0 0 0" + std::string(timed ? " 0\n" : "\n");
    text += "ElementSpacing =" + spacing + "\n";
    text += "DimSize = " + Sizes(grid) + "\n";
    if (grid.type == VoxelType::Rgb24) text += "ElementNumberOfChannels = 3\n";
    text += std::string("ElementType = ") + MetaType(grid.type) + "\n";
    return text + "ElementDataFile = LOCAL\n";
}

}  // namespace korvane
