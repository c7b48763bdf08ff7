// The operations that bench_speed measures, as an interface: this project and each peer library implement it.
#pragma once

#include "Series.h"

#include <cstddef>
#include <memory>
#include <string>

/// Every operation throws `std::runtime_error` when it fails.
class Reader {
public:
    virtual ~Reader() = default;
    virtual std::string GetName() const = 0;

    /// A volume, and whatever else must live as long as its pixels; all is freed with the object.
    class Volume {
    public:
        virtual ~Volume() = default;
        virtual const void* GetPixels() = 0;
    };

    /// Reads all files of the series into one block of pixels, keeping the data sets.
    virtual std::unique_ptr<Volume> ReadVolume(const Series& series) = 0;

    /// Reads everything in front of the pixel data, and frees it.
    virtual void ReadHeader(const std::string& path) = 0;

    /// Parses a Part 10 stream and frees the result. Returns the number of items in the sequence (0040,A730), or of
    /// elements where there is none.
    virtual std::size_t Parse(const std::string& stream) = 0;
};

/// The peers' are linked only where their libraries are installed: BENCH_DCMTK, BENCH_GDCM.
std::unique_ptr<Reader> MakeToolkitReader();
std::unique_ptr<Reader> MakeDcmtkReader();
std::unique_ptr<Reader> MakeGdcmReader();
