// Values that stay in their file until they are asked for.
#pragma once

#include "../../Dicom/Lib/stream/FileBuffer.h"
#include "../../platform/File.h"
#include "../core/Watch.h"
#include "DataSet.h"
#include "DataSetFile.h"
#include "Toolkit.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace korvane {

/// Whether the element's value is in its file: the element then has its length and no data. Whoever wants the value
/// takes a `LeftValueReader`.
inline bool IsLeft(const VR& element) {
    return element.m_pData == nullptr && element.m_Length > 0 && element.m_pReference != nullptr &&
           element.GetItemCount() == 0;
}

/// Whether any value of the data set, its items and fragments is.
bool HasLeftValues(const DICOMObject& dataSet);

/// Makes elements without data in `copy` (a shallow one, which does not have that by itself) left values as in `original`.
void CarryLeftValues(const DICOMObject& original, DICOMObject& copy);

/// For a data set of somebody else: what its elements refer to is nothing of ours.
void ForgetLeftValues(DICOMObject& dataSet);

/// A file in which values can be passed over without reading them, where it is a regular one.
class SeekingBuffer : public FileInputBuffer {
public:
    /// Where the next byte stands in the file; there must be one.
    std::uint64_t GetPlace();
    /// Of the file as it was opened.
    const platform::FileState& GetState() { return GetFile().GetState(); }
    /// `Skip` without reading.
    bool PassOver(std::uint32_t count);

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;

private:
    std::uint64_t m_Place = 0;       // of what is filled next
    std::uint64_t m_PassedOver = 0;  // up to here nothing needs to be read
    const unsigned char* m_pFilled = nullptr;
    bool m_bSeek = false;
};

/// What one file's data set has left in it. Elements point into this object, which must outlive them.
class LeftValues {
public:
    /// `larger`: bytes from which a value is left. Texts never are: whether they are what their character set says must
    /// be known when reading ends. `state`: of the file, which is read now; nothing when it is no regular one.
    static std::shared_ptr<LeftValues> Of(const NamedFile& file, std::uint32_t larger,
                                          const platform::FileState& state);

    const std::string& GetName() const { return m_Name; }

    /// For parsers; see `ValueLeaver`. Only values that lie in the file as they are can be left.
    bool Leave(Buffer& buffer, VR& element, std::uint32_t length);

private:
    friend class LeftValueReader;

    struct Value {
        const LeftValues* source;
        std::uint64_t offset;
        std::uint32_t length;  // in the file, without a pad
        unsigned unit;         // of numbers to be swapped; 1: none
    };

    LeftValues(const NamedFile& file, std::uint32_t larger, const platform::FileState& state);

    std::string m_Name;
    std::string m_Place;
    std::uint32_t m_Larger;
    platform::FileState m_State;
    std::deque<Value> m_Values;
};

/// Reads left values; keeps the file open from one to the next. Throws `Error` when the file is not the one any more
/// that the data set was read from, or cannot be read; `std::bad_alloc`.
class LeftValueReader {
public:
    explicit LeftValueReader(const Watch& watch = {}) { m_File.SetStopQuestion(watch.GetStopQuestion()); }

    /// Some bytes of the value, little endian, from a multiple of 8 on. `IsLeft(element)` must hold.
    void Read(const VR& element, std::uint32_t from, std::span<unsigned char> bytes);
    /// Brings the value into memory, where the element is left.
    void Load(VR& element);
    /// All of the data set, its items and fragments.
    void LoadAll(DICOMObject& dataSet);

private:
    void Open(const VR& element);
    void Close();

    const LeftValues* m_pSource = nullptr;
    platform::InputFile m_File;
};

/// An element with its value: itself, or a copy with what was left in the file, up to `most` bytes of it.
class WithValue {
public:
    WithValue(const VR& element, LeftValueReader& reader, std::uint32_t most = UINT32_MAX);

    const VR& operator*() const { return m_Copy ? *m_Copy : m_Element; }
    const VR* operator->() const { return &**this; }

private:
    const VR& m_Element;
    std::optional<VR> m_Copy;
};

/// A data set with values in its file, made of what was read and taken apart again.
struct DataSetParts {
    static DataSet Join(DataSetFile& file);
    /// The elements; the data set is done with. `file.left` still has their values.
    static std::unique_ptr<DICOMDataObject> Take(DataSet& set);
};

}  // namespace korvane
