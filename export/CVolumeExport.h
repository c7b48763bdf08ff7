// The base of the volume exporters.
#pragma once

#include "../base/Export.h"

#include <string>

class CDicomVolume;
class CFileWriter;
class CPercent;
class CVolume;

/// Takes a volume from a series by assignment and saves it under a URL:
///
///     CAnalyzeVolume exporter;
///     exporter = series;                              // a CDicomVolume after Alloc
///     exporter.SetCallback(&progress);                // optional; SetTotElab and StartProgress are the caller's
///     if (!exporter.SaveUrl("file:out\\head"))
///         puts(exporter.GetError());
///
/// Ownership. The exporter holds a reference to the volume and owns its writer. The callback stays the caller's.
///
/// Failure. The public operations return false, with a text in `GetError` where one is stated; nothing is thrown out of
/// `SaveUrl`. A derived exporter's `Save` may throw anything but should return false.
///
/// Values. Each format changes voxels in its own way on their way into the file; the derived exporters' `GetMapping`
/// tells what is done to those of the volume at hand.
///
/// Threads. Different exporters work in different threads at the same time, to disk and to servers, provided that they
/// hold different volumes and series: a volume's count is not atomic.
///
/// A copy is shallow: it shares volume and writer with its source, takes no reference, and must not outlive it. What it
/// shares it never releases; a volume or a writer given to it later is its own.
class KORVANE_API CVolumeExport {
public:
    /// No volume, no callback, a `CFileWriter`.
    CVolumeExport();
    CVolumeExport(const CVolumeExport& source);

    /// Releases what was its own, then shares volume, callback and writer of `source`.
    CVolumeExport& operator=(const CVolumeExport& source);

    /// Drops the reference to the volume and deletes the writer, which ends an FTP session.
    virtual ~CVolumeExport();

    /// Writes the files of the format through the current writer: directory, separator, name, extension.
    virtual bool Save(const char* dir, const char* name) = 0;

    /// Takes a reference to the volume of `series` (instead of the one held before), and what else the format needs.
    virtual CVolumeExport& operator=(CDicomVolume& series) = 0;

    /// Saves to "file:path\name" or "ftp:user%pwd@host/path/filename" (path may be missing; host may carry ":port").
    ///
    /// A file URL is split at its last BACKSLASH only: "file:C:\out\vol" is name "vol" in "C:\out", "file:vol" is name
    /// "vol" in the empty directory, and so is all of "file:out/vol". It goes through the current writer, whatever that
    /// is: after an FTP save the session is still installed.
    ///
    /// An FTP URL logs in first. If that fails, `GetError` is the server's last reply ("" without one) and the writer
    /// stays; else a connected `CFTPSend` takes its place. Path and name may hold blanks. False as well when the server
    /// did not confirm a file that was sent.
    ///
    /// The parts of an FTP URL end at the first '%', the first '@' behind it, the first '/' behind that: a user name
    /// cannot hold '%', a password not '@'. Nothing in it is decoded. The host is a name or an IPv4 address, and takes
    /// ":port" where the port is not 21. The path is the server's; without one the formats ask for a file in its root
    /// ("/vol.hdr"). CRTVizVolume puts a backslash between path and name here too, so a server with slashes makes a
    /// file "path\name.vox" beside the folder.
    ///
    /// A malformed URL (control characters included) and any exception out of `Save` give the same "Bad URL: ..." text.
    bool SaveUrl(const char* url);

    /// The text of the last failure that had one; "" when there was none. A later success does not clear it.
    const char* GetError() const { return m_Error.c_str(); }

    CVolume* GetVolume() { return m_pVolume; }
    CFileWriter* GetFileWriter() { return m_pWriter; }

    /// Called once for each slice of a save; null for none.
    void SetCallback(CPercent* callback) { m_pCallback = callback; }

    /// Deletes the current writer and takes ownership of `writer`. With null every save fails.
    void SetFileWriter(CFileWriter* writer);

protected:
    /// The parts of `SaveUrl` behind the scheme and its colon. They throw the `int` 1 for a malformed URL.
    bool SaveFile(const std::string& rest);
    bool SaveFtp(const std::string& rest);

    /// Drops the reference to the present volume and holds `volume` (may be null) instead: `TakeReference` adds one,
    /// `AdoptReference` takes over the caller's.
    void TakeReference(CVolume* volume);
    void AdoptReference(CVolume* volume);

    /// Reports one unit of work; true when the callback asks to stop.
    bool AdvanceProgress();

    /// The pixels of a plane; throws the `int` 1 when the volume has none.
    void* PlanePixels(int plane);

    CVolume* m_pVolume;
    CPercent* m_pCallback;
    CFileWriter* m_pWriter;
    std::string m_Error;

private:
    void ReleaseVolume();
    void ReleaseWriter();

    // What belongs to the exporter that this one was copied from.
    bool m_bVolumeBorrowed;
    bool m_bWriterBorrowed;
};
