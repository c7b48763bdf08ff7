// What the benchmarks ask of each library: this project's toolkit and the peers beside it.
#pragma once

#include "Series.h"

#include <cstddef>
#include <memory>
#include <string>

/// A failure is a `std::runtime_error` out of any operation.
class Reader {
public:
    virtual ~Reader() = default;
    virtual std::string GetName() const = 0;

    /// A volume, and whatever else must live as long: freed with the object.
    class Volume {
    public:
        virtual ~Volume() = default;
        virtual const void* GetPixels() = 0;
    };

    /// Files to filled planes in one block, all data sets held.
    virtual std::unique_ptr<Volume> ReadVolume(const Series& series) = 0;

    /// Everything in front of the pixel data, read and dropped.
    virtual void ReadHeader(const std::string& path) = 0;

    /// Parses a Part 10 stream and frees the result. Returns the number of items in the sequence (0040,A730), or of
    /// elements where there is none.
    virtual std::size_t Parse(const std::string& stream) = 0;
};

std::unique_ptr<Reader> MakeToolkitReader();
std::unique_ptr<Reader> MakeDcmtkReader();
std::unique_ptr<Reader> MakeGdcmReader();
