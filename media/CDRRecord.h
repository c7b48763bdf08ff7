// Directory records of a DICOMDIR (PS3.3 F.3 to F.5), one class for each kind.
#pragma once

#include "../Dicom/Lib/dataset/DICOMObject.h"
#include "../base/Export.h"
#include "CDRRecordList.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class CCDRObject;

/// An element that a record copies from a data set: tag, and the value representation that it is written with.
struct DRElement {
    tags::Tag tag;
    unsigned short typeCode;
};

/// One node of the tree that `CCDRObject` builds. It copies its keys from a data set (missing elements give empty
/// values; blanks and zero bytes at a value's end are not part of it) and writes itself as an item of the Directory
/// Record Sequence (0004,1220). A record of this very class is a private one.
///
/// Values are bytes in the data set's Specific Character Set. Their lengths are not checked: the directory repeats what
/// the file says. A record is made by `CCDRObject::AddIOD`, once for each patient, study, series and file; numbers in
/// names count from 1 within the parent.
///
/// A record owns its children. A copy has the same keys and no children.
class KORVANE_API CDRRecord {
public:
    /// The kinds of records. `CCDRObject::AddPrivate` takes one.
    enum RecordType { Patient, Study, Series, Image, RTDose, RTStructureSet, RTPlan, SRDocument, Private, RecordTypes };

    explicit CDRRecord(CCDRObject* owner = nullptr);
    CDRRecord(const CDRRecord& other);
    CDRRecord& operator=(const CDRRecord& other);

    // The order of the virtual operations is part of the interface.
    virtual ~CDRRecord();

    /// Directory Record Type (0004,1430).
    virtual std::string GetTypeText() const;

    /// What `CCDRObject::FindRecord` compares: of leaves the SOP Instance UID.
    virtual const std::string& GetKey() const;

    /// Takes the keys from the data set, and joins the children of `parent` (null: joins nothing), which then owns it.
    /// Not to be called twice. Throws a `std::string`, with nothing joined, for a data set that makes no such record.
    virtual void SetDDO(CDRRecord* parent, const DICOMObject& dataSet);

    /// Adds the record's elements (PS3.3 F.3.2.2, F.5) to an item, which owns them then: its type, its keys, and of
    /// leaves the file that it stands for. The offsets between records are filled in by the builder. Text beyond ASCII
    /// brings the data set's Specific Character Set (0008,0005) along.
    virtual void AddToDDO(DICOMObject& item) const;

    /// What the name of the record's folder or file begins with: P, S, S, I for patient, study, series and file, R for
    /// a private one.
    virtual char GetLetter() const;

    CCDRObject* m_pOwner;              ///< the builder; not owned, may be null
    int m_Number = -1;                 ///< the one in its name; -1 until it has one
    std::string m_Path;                ///< folder or file, relative to the root, with backslashes
    std::string m_SourcePath;          ///< the file that was copied, of leaves and private records
    std::string m_ReferencedClass;     ///< of the source file: (0008,0016)
    std::string m_ReferencedInstance;  ///< (0008,0018)
    std::string m_ReferencedSyntax;    ///< (0002,0010); what was written where the file was transcoded
    std::string m_ReferencedFileId;    ///< (0004,1500), of a source that has it; never part of a path
    CDRRecordList m_Children;          ///< the entity below (0004,1420): of leaves none
    CDRRecordList m_PrivateRecords;    ///< files that `CCDRObject::AddPrivate` put beside a leaf; not in DICOMDIR

protected:
    /// `elements` must outlive the record.
    CDRRecord(CCDRObject* owner, const DRElement* elements, std::size_t count);

    /// The values of `elements`, in their order; empty until `SetDDO`.
    std::vector<std::string> m_Values;
    std::string m_CharacterSet;  ///< (0008,0005), where the record needs it

private:
    const DRElement* m_pElements = nullptr;
};

/// PATIENT; the key is the Patient ID.
class KORVANE_API CDRPatientRecord : public CDRRecord {
public:
    explicit CDRPatientRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
    const std::string& GetKey() const override;
    char GetLetter() const override;
};

/// STUDY; the key is the Study Instance UID.
class KORVANE_API CDRStudyRecord : public CDRRecord {
public:
    explicit CDRStudyRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
    const std::string& GetKey() const override;
    char GetLetter() const override;
};

/// SERIES; the key is the Series Instance UID.
class KORVANE_API CDRSeriesRecord : public CDRRecord {
public:
    explicit CDRSeriesRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
    const std::string& GetKey() const override;
    char GetLetter() const override;
};

/// IMAGE, and the base of all records that stand for a file: every SOP class that has no kind of its own.
class KORVANE_API CDRImageRecord : public CDRRecord {
public:
    explicit CDRImageRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
    const std::string& GetKey() const override;
    void AddToDDO(DICOMObject& item) const override;
    char GetLetter() const override;

    /// A new record for a SOP Class UID, compared exactly: RT dose, structure set, plan and SR documents have kinds of
    /// their own, everything else is an IMAGE.
    static std::unique_ptr<CDRRecord> Make(CCDRObject* owner, std::string_view sopClass);

protected:
    CDRImageRecord(CCDRObject* owner, const DRElement* elements, std::size_t count);
};

/// RT Dose. Its type is "RT STRUCTURE SET" deliberately, where the standard has "RT DOSE" (PS3.3 F.5.19): hosts depend
/// on it.
class KORVANE_API CDRRTDoseRecord : public CDRImageRecord {
public:
    explicit CDRRTDoseRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
};

/// RT Structure Set.
class KORVANE_API CDRRTStructSetRecord : public CDRImageRecord {
public:
    explicit CDRRTStructSetRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
};

/// RT Plan. The RT Plan Label (300A,0002) is written as CS deliberately, where the standard has SH: hosts depend on it.
class KORVANE_API CDRRTPlanRecord : public CDRImageRecord {
public:
    explicit CDRRTPlanRecord(CCDRObject* owner = nullptr);
    std::string GetTypeText() const override;
};

/// SR DOCUMENT, with a copy of the Concept Name Code Sequence (0040,A043): what its items have of group 0008, sequences
/// aside.
class KORVANE_API CDRSRDocRecord : public CDRImageRecord {
public:
    explicit CDRSRDocRecord(CCDRObject* owner = nullptr);
    CDRSRDocRecord(const CDRSRDocRecord& other);
    CDRSRDocRecord& operator=(const CDRSRDocRecord& other);
    ~CDRSRDocRecord() override;
    std::string GetTypeText() const override;

    /// Throws "CDRSRDocRecord::SetDDO: Concept name sequence missing" for a document without one.
    void SetDDO(CDRRecord* parent, const DICOMObject& dataSet) override;
    void AddToDDO(DICOMObject& item) const override;

private:
    std::unique_ptr<VR> m_pConceptName;
};
