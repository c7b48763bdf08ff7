// Builds a DICOM file-set (PS3.10 8) in a folder: the files, in folders by patient, study and series, and DICOMDIR.
#pragma once

#include "../Dicom/Lib/dataset/DICOMObject.h"
#include "../Dicom/Lib/network/DcmService.h"
#include "../base/Export.h"
#include "../volume/CPercentGenerator.h"
#include "CDRRecord.h"

#include <functional>
#include <memory>
#include <string>

class CodecManager;
class DcmDictionary;

/// `SetRoot`, `SetFileRoot` (both folders made by the host), `AddIOD` for each file, then `WriteCDR("\\DICOMDIR")`.
///
///     root\DICOMDIR
///     root\file root\P0000001\S0000001\S0000001\I0000001      patient, study, series, file
///
/// Names are a letter and seven hexadecimal digits, counted from 1 within the folder; nothing that is read from a file
/// becomes part of a path. Paths inside are written with backslashes on every system. A directory has place for the
/// numbers up to 0FFFFFFF.
///
/// Every failure is a `std::string` that is thrown. `AddIOD` then leaves the tree as it was, and takes away the folders
/// that it made for the file. Each file that is added counts one unit of progress. The object does not stop by itself
/// when an observer asks for it: the host ends its loop.
///
/// A file with an empty Patient ID or UID is taken like any other, so such files share a record. A host that does not
/// want that checks them before.
///
/// It derives from the toolkit's network service only for the implementation class UID and version name that files get;
/// it opens no connection. A copy has the settings, and no records.
class KORVANE_API CCDRObject : public CPercentGenerator, public DcmService {
public:
    CCDRObject();
    CCDRObject(const CCDRObject& other);
    CCDRObject& operator=(const CCDRObject& other);
    ~CCDRObject() override;

    /// The destination folder, and the folder in it that patients' folders are made in (empty: the root itself).
    void SetRoot(const std::string& root);
    const std::string& GetRoot() const;
    void SetFileRoot(const std::string& fileRoot);
    const std::string& GetFileRoot() const;
    /// The root, and behind a backslash the file root, when there is one.
    std::string GetFilePath() const;

    /// The dictionary that all objects of this class use to type elements of implicit files; not owned, null for none.
    static void SetDictionary(DcmDictionary* dictionary);

    /// What DICOMDIR says of the file-set. File-set ID: at most 16 of A-Z, 0-9, space and underscore, "" at first;
    /// source application entity title: "KORVANE" at first; instance UID: a new one is made where none is set;
    /// consistency flag (0004,1212), not set at first: whether the directory is known to be inconsistent.
    void SetFileSetID(const std::string& id);
    void SetSourceAETitle(const std::string& title);
    void SetMediaStorageUID(const std::string& uid);
    void SetConsistencyFlag(bool flag);

    /// Whether files are hard-linked where the system can, and copied otherwise (at first), or always copied. Linking
    /// that fails once is not tried again.
    void SetHardLinks(bool link);

    /// Asked now and then while files are read and copied (each MB, and at least every 20 ms), on the thread that adds
    /// them; none at first. After a yes the file being added fails like one that cannot be read or copied, with `errno`
    /// EINTR, and leaves nothing on the medium. `MyCopyFunc` does not ask.
    void SetStopQuestion(std::function<bool()> stop);

    /// Begins another file-set: no records, no current record, private files counted from 1, no instance UID.
    void Reset();

    /// Adds a DICOM file, copied or linked bit for bit. With `transcode`, a file that is neither explicit nor implicit
    /// VR little endian is decoded and written explicit VR little endian, of the RT classes implicit. Returns the path
    /// of the file on the media, relative to the root. An instance that its series has already is not added again: the
    /// result is the path of the first. A deflated file counts as one that cannot be loaded.
    std::string AddIOD(const std::string& path, bool transcode);

    /// The same for a host that has read the file `path` already. It trusts its caller: records, their keys and the
    /// (0004,151x) elements are made of `dataSet` without a look at the file, which is copied as it lies there. So
    /// `dataSet` must be that of the file, group 0002 included (a wrong (0002,0010) copies what should be transcoded),
    /// must not be deflated, and the file must not change in between. It may end in front of Pixel Data. It stays the
    /// caller's, is not changed, and is not used behind the call.
    std::string AddIOD(const std::string& path, const DICOMObject& dataSet, bool transcode);

    /// Why the codecs refused the file that `AddIOD` threw "Error decoding object" for; for a person to read.
    const std::string& GetReason() const;

    /// Puts a file of any other kind beside the file added last (in `folder`, relative to the root, when that is given)
    /// under a name with an R. Returns its path, relative to the root. DICOMDIR does not name it.
    std::string AddPrivate(CDRRecord::RecordType type, const std::string& path, const std::string& folder = {});

    /// Writes DICOMDIR into the root, unless root + `name` exists. False when not all of it could be written; what
    /// there is of the file then stays.
    bool WriteCDR(const std::string& name);

    /// An element, which the caller owns. A text of odd length gets a blank, UIDs too.
    static VR* CreateVR(unsigned short group, unsigned short element, unsigned short typeCode,
                        const std::string& value);
    static VR* CreateVR(unsigned short group, unsigned short element, unsigned short typeCode, unsigned int value);
    static VR* CreateVR(unsigned short group, unsigned short element, unsigned short typeCode, unsigned short value);

    static void DeleteRecordList(CDRRecordList& list);

protected:
    /// As Windows' CreateHardLinkA: new name, existing name, not used. Non-zero on success.
    using CopyFunction = int (*)(const char* destination, const char* source, void* attributes);

    /// The first record of a list with that key; null without one.
    static CDRRecord* FindRecord(const CDRRecordList& list, const std::string& key);

    /// The path, relative to the root, of name `letter` and `number` in a folder (empty: the file root); `create` makes
    /// a folder of it.
    std::string GetPath(const std::string& root, const std::string& folder, char letter, unsigned number, bool create);

    /// Copies or links; and the transcoding copy, which drains the data set.
    void CopyFile(const std::string& destination, const std::string& source);
    void CopyFile(DICOMObject& dataSet, const std::string& destination);

    /// Copies. Returns 1, or throws.
    static int MyCopyFunc(const char* destination, const char* source, void* attributes);

    /// Copies the sources of private records into a new folder, `folder` + "PRIVATE", under names with a P. `folder` is
    /// relative to the root, with the backslash at its end.
    void CopyPrivateFile(const CDRRecordList& list, const std::string& folder);

    /// DICOMDIR as a data set, with offsets that hold for the file that `WriteDDO` makes.
    std::unique_ptr<DICOMDataObject> CreateDDO();

    /// Positions in the file of the first and of the last record of a list; 0 without one.
    struct RecordRange {
        unsigned long long first = 0;
        unsigned long long last = 0;
    };

    /// Appends the items of the records and of all below them to the element pushed last, a sequence at `base`.
    RecordRange CreateRecordDDO(DICOMObject& dataSet, const CDRRecordList& list, unsigned long long base);

    /// `offset` and the bytes that an object takes in explicit VR little endian, sequences and items of undefined
    /// length, meta group included.
    static unsigned long long DDOLength(const DICOMObject& object, unsigned long long offset);

    /// Writes a data set, which is then empty, behind a preamble. False on failure, short writes included.
    static bool WriteDDO(const std::string& path, DICOMDataObject& dataSet);

    static DcmDictionary* Dictionary;

    CDRRecordList m_Patients;
    CDRRecord* m_pCurrent = nullptr;         ///< the leaf made or found last
    int m_PrivateFiles = 0;                  ///< how many were added
    CopyFunction m_pCopyFunction = nullptr;  ///< null until it is first needed

private:
    class Placing;

    CDRRecord& Place(Placing& placing, std::unique_ptr<CDRRecord> made, CDRRecord* parent, const DICOMObject& dataSet);
    void Store(CDRRecord& leaf, const std::string& path, bool transcode);
    void AddMetaInformation(DICOMDataObject& dataSet);

    std::string m_Root;
    std::string m_FileRoot;
    std::string m_FileSetID;
    std::string m_SourceAETitle = "KORVANE";
    std::string m_MediaStorageUID;
    std::string m_Reason;
    bool m_bConsistencyFlag = false;
    bool m_bHardLinks = true;
    unsigned long long m_ItemBytes = 0;  // of the records written so far
    std::unique_ptr<CodecManager> m_pCodecs;
    std::function<bool()> m_Stop;
};
