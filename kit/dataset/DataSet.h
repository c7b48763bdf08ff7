// A DICOM data set as a value.
//
//     auto set = korvane::DataSet::Read("in.dcm");
//     std::cout << set.Text("PatientName") << ' ' << set.Real("SliceThickness").value_or(0) << '\n';
//     set.Set("PatientID", "anonymous");
//     set.Save("out.dcm");
#pragma once

#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "ElementPath.h"
#include "Leniency.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class DICOMDataObject;
class DICOMObject;

namespace korvane {

class LeftValues;

/// What a walk tells of an element.
struct ElementFacts {
    tags::Tag tag{};
    std::string type;          ///< two letters (PS3.5 6.2): "PN"
    std::string name;          ///< "Patient's Name"
    std::uint32_t length = 0;  ///< of the value in bytes
    int depth = 0;             ///< 0 at the top, one more in each sequence
};

/// A day and a time of it (DT, PS3.5 6.2), as written: at the place where it was, unless it names its offset from UTC.
struct DateTime {
    std::chrono::year_month_day date;
    std::chrono::microseconds time{0};           ///< since midnight
    std::optional<std::chrono::minutes> offset;  ///< of the place from UTC, east of it positive
};

/// Looks into a data set or an item of a sequence. It owns nothing: valid as long as the data set is there and unchanged.
///
/// Texts are UTF-8, whatever the character set (0008,0005) of the data. What is absent or empty gives an empty text, no
/// number, no items. Numbers are read from every type that holds numbers (PS3.5 6.2: DS, IS, US, FD ...); asked of another
/// type, of a text that is none, or, for a single one, of several values, they throw `Error` of kind `Damaged`. Values that
/// were left in the file (`ReadOptions::leaveLarger`) come into memory when they are asked for, and stay.
class KORVANE_KIT DataSetView {
public:
    bool Has(const ElementPath& path) const;
    /// The two letters of the type; "" when absent.
    std::string TypeOf(const ElementPath& path) const;

    /// All values as a text, a backslash between them; numbers in decimal.
    std::string Text(const ElementPath& path) const;
    std::vector<std::string> Texts(const ElementPath& path) const;

    std::optional<double> Real(const ElementPath& path) const;
    std::vector<double> Reals(const ElementPath& path) const;
    std::optional<std::int64_t> Integer(const ElementPath& path) const;
    std::vector<std::int64_t> Integers(const ElementPath& path) const;

    /// DA; nothing for what is no date of the calendar.
    std::optional<std::chrono::year_month_day> Date(const ElementPath& path) const;
    /// TM, since midnight.
    std::optional<std::chrono::microseconds> Time(const ElementPath& path) const;
    /// DT; nothing for what names no day of the calendar.
    std::optional<DateTime> DateAndTime(const ElementPath& path) const;

    /// The value's bytes, little endian; of compressed pixel data none.
    std::span<const unsigned char> Bytes(const ElementPath& path) const;

    /// The items of a sequence.
    std::vector<DataSetView> Items(const ElementPath& path) const;

    /// Calls `visit` for each element in the order of tags, those in items behind their sequence.
    void Walk(const std::function<void(const ElementFacts&)>& visit) const;

    /// The DICOM JSON model (PS3.18 F); group 0002, which is no part of it, only when asked for.
    /// A watcher is told of texts with bytes that their character set does not have; each is U+FFFD.
    std::string ToJson(bool meta = false, Watcher* watcher = nullptr) const;

    /// Whether both have the same elements with the same types and bytes, items included.
    friend KORVANE_KIT bool operator==(const DataSetView& left, const DataSetView& right);

protected:
    DataSetView(const DICOMObject* dataSet, std::string characterSet)
        : m_pDataSet(dataSet), m_CharacterSet(std::move(characterSet)) {}

    const DICOMObject* m_pDataSet;

private:
    struct Place;  // an element and what its texts are in
    Place Find(const ElementPath& path) const;

    std::string m_CharacterSet;  // of what is around it
};

struct ReadOptions {
    bool pixels = true;  ///< false: reading ends before Pixel Data (7FE0,0010)
    /// Values of so many bytes and more, texts apart, stay in the file until they are asked for, and so do fragments of
    /// compressed pixels; 0: all is read. For large files of which the header is wanted, or an edit: saving copies such
    /// values from file to file. Whoever asks for one gets an `Error` of kind `Disk` when the file has changed or gone since.
    /// Of files only; of streams and bytes all is read.
    std::uint32_t leaveLarger = 0;
    Leniency leniency{};
    Watcher* watcher = nullptr;
};

/// What reading met.
struct ReadReport {
    std::string transferSyntax;       ///< UID; that of the encoding where the data names none
    bool complete = true;             ///< false: the data ends early or is damaged; what could be read is there
    bool hasPreamble = false;         ///< "DICM" stood at byte 128
    std::vector<Finding> findings{};  ///< what was forgiven, and texts that are not in their character set
};

struct SaveOptions {
    /// A transfer syntax UID or a word of `GetSyntaxWords`; "": the one that the data is in, where it is an uncompressed
    /// one or holds compressed pixels, else explicit VR little endian.
    std::string syntax;
    Watcher* watcher = nullptr;
};

/// Owns its elements. Movable, and empty when it was moved from; `Clone` makes a copy.
class KORVANE_KIT DataSet : public DataSetView {
public:
    DataSet();
    ~DataSet();
    DataSet(DataSet&& other) noexcept;
    DataSet& operator=(DataSet&& other) noexcept;

    /// Throws `Error`: `NotFound`, `Disk`, `NotDicom`, `Stopped`. Data that ends early is no failure: see `ReadReport`.
    static DataSet Read(const std::string& path, const ReadOptions& options = {});
    /// From a binary stream, read once to its end.
    static DataSet Read(std::istream& stream, const ReadOptions& options = {});
    static DataSet Parse(std::span<const unsigned char> bytes, const ReadOptions& options = {});
    /// From the DICOM JSON model; texts become UTF-8 (ISO_IR 192). An element whose value the JSON does not have
    /// (BulkDataURI) is left out, and the report says so. Throws `Error` of kind `Damaged`.
    static DataSet FromJson(std::string_view json);
    /// From an array of them, as web services answer (PS3.18 F.2); a single one counts as an array.
    static std::vector<DataSet> ListFromJson(std::string_view json);

    DataSet Clone() const;
    const ReadReport& GetReport() const { return m_Report; }

    /// Sets or replaces a value, given as a text in UTF-8 with a backslash between values. Its type is that of the
    /// dictionary, else the one that is there; numbers are converted, texts go into the data set's character set and are
    /// padded. On the way items are used that are there; the item behind the last is made. Throws `Error` of kind
    /// `WrongArgument` for what the type or the number of values forbids (PS3.5 6.2), or characters that the set lacks.
    void Set(const ElementPath& path, std::string_view text);
    void Set(const ElementPath& path, std::span<const double> values);
    void Set(const ElementPath& path, double value) { Set(path, std::span<const double>(&value, 1)); }
    /// Bytes as they shall lie in the file, little endian. `type`: two letters; "": as above.
    void SetBytes(const ElementPath& path, std::span<const unsigned char> bytes, std::string_view type = {});
    /// A text as `Set` takes it, whose form and number of values are not checked: for data that is as it is.
    void SetUnchecked(const ElementPath& path, std::string_view text);
    /// Appends an empty item to a sequence, which is made where it is not there.
    void AddItem(const ElementPath& path);
    /// Takes an element out; false when it was not there.
    bool Delete(const ElementPath& path);

    /// Writes a Part 10 file in any transfer syntax. This object stays as it is; elements without a known type are written
    /// as UN, none is lost. The file gets its name when it is whole. Throws `Error`.
    void Save(const std::string& path, const SaveOptions& options = {}) const;
    void Save(std::ostream& stream, const SaveOptions& options = {}) const;

    /// Brings into memory what was left in the file; it is then not needed any more.
    void LoadValues(Watcher* watcher = nullptr);

    /// The toolkit's object, for what is not offered here, with all values. It stays this one's. Elements that are put in
    /// must have their data.
    DICOMDataObject& Toolkit();
    const DICOMDataObject& Toolkit() const;
    /// Takes over an object of the toolkit; null makes an empty data set.
    static DataSet FromToolkit(std::unique_ptr<DICOMDataObject> dataSet);
    /// Hands the object over; this one is empty afterwards.
    std::unique_ptr<DICOMDataObject> ReleaseToolkit();

private:
    friend struct DataSetParts;

    explicit DataSet(std::unique_ptr<DICOMDataObject> dataSet, std::shared_ptr<LeftValues> left = {});
    std::unique_ptr<DICOMDataObject> Prepared(const SaveOptions& options, std::string& syntax) const;
    DICOMObject& Holder(const ElementPath& path);
    void SetText(const ElementPath& path, std::string_view text, bool checked);
    static DataSet WithoutValuesOf(DataSet set, const std::vector<std::string>& elsewhere);

    std::shared_ptr<LeftValues> m_pLeft;  // outlives the elements that point into it
    std::unique_ptr<DICOMDataObject> m_pOwned;
    ReadReport m_Report;
};

}  // namespace korvane
