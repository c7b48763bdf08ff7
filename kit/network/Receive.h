// Receives files from DICOM programs that send them (C-STORE and C-ECHO as provider, PS3.4 A and B).
#pragma once

#include "../core/KitExport.h"
#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "TlsOptions.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace korvane {

/// Folders within the receiver's: none, or one for each patient, for each study in that, and for each series in that.
/// They are named by Patient ID and UIDs, with a number behind what is no plain name for a file.
enum class FileLayout { Flat, Patient, Study, Series };

/// "flat", "patient", "study", "series".
KORVANE_KIT const std::map<std::string, FileLayout>& LayoutWords();

/// Where `Receive` listens and stores, and which peers it accepts.
struct ReceiveOptions {
    std::uint16_t port = 0;   ///< 0: the system chooses one, which the observer is told
    std::string folder;       ///< made where it is not there; empty: data sets are not taken
    std::string bindAddress;  ///< address of this machine to listen on (IPv4 or IPv6); empty: all
    FileLayout layout = FileLayout::Flat;
    bool replace = false;                ///< replace a file of the same SOP Instance UID; else both are kept
    std::size_t count = 0;               ///< associations to serve; 0: until the watcher stops it
    std::string ownTitle;                ///< the called AE title must be this one; empty: any
    std::vector<std::string> callers;    ///< calling AE titles that are accepted; none: all
    std::vector<std::string> addresses;  ///< addresses that may connect (IPv4 or IPv6); none: all
    TlsOptions tls{};                    ///< encrypted connections only, where it is on
    unsigned limit = 64;                 ///< associations at once; further ones are rejected as transient
    unsigned limitPerAddress = 0;        ///< associations at once from one address; 0: as many as `limit`
    std::uint64_t keepFree = std::uint64_t{64} << 20;  ///< bytes; with less free disk, data sets are refused (0xA700)
    bool sync = true;                                  ///< success is answered only when the file is on the disk itself
    int requestTimeout = 30;  ///< seconds until a peer that has connected must have asked for an association
    int timeout = 300;        ///< seconds that a peer may be silent later
    /// Where commitment is reported to a title that has ended its association: "TITLE=HOST:PORT" each, encrypted where
    /// `tls` is on.
    std::vector<std::string> commitTo{};
    int commitRetry =
        10;  ///< seconds before a report is tried again; each further one waits twice as long, at most an hour
    bool takesReports = false;  ///< take reports of commitment that others send, and tell the observer
    int studyQuiet = 0;         ///< seconds without a new file after which the observer is told of a study; 0: never
    /// A program's name or path, run for each study that is quiet (after 30 seconds unless `studyQuiet` says otherwise):
    /// without a shell and without arguments, up to four at once, with KORVANE_STUDY, KORVANE_PATIENT, KORVANE_CALLING,
    /// KORVANE_FOLDER and KORVANE_FILES in its environment. Failures are told to the watcher, and counted. Empty: none.
    std::string onStudy{};
    std::string log{};           ///< a file that a line of `ToJson` is appended to for each association; empty: none
    Watcher* watcher = nullptr;  ///< stops the work; the folder's files are whole then
};

/// One data set that was received. Texts come from the peer: escape them before printing.
struct ReceivedFile {
    std::string path;  ///< empty: it was not stored
    std::string sopClass;
    std::string sopInstance;
    std::string transferSyntax;
    std::string caller;
    std::uint16_t status = 0;  ///< the status of our response (PS3.7 C)
    std::string why;           ///< why it was not stored; empty where it was
    std::string remark;        ///< something odd about what was stored
    std::string time;          ///< when it was answered: UTC, "2026-01-31T12:00:00.000Z"
    std::string study;         ///< Study Instance UID and Patient ID; read only for a layout, or for `studyQuiet`
    std::string patient;
};

/// A study of which no file has come for a while.
struct ReceivedStudy {
    std::string study;  ///< Study Instance UID
    std::string patient;
    std::string caller;     ///< who sent the last file
    std::string folder;     ///< of the last file
    std::size_t files = 0;  ///< that were stored since it was told of last
};

/// A request for storage commitment (PS3.4 J.3), after an attempt to report.
struct ReceivedCommitment {
    struct Failure {
        std::string sopClass;
        std::string sopInstance;
        std::uint16_t status = 0;  ///< Failure Reason (0008,1197)
        std::string why;
    };
    std::string transaction;  ///< Transaction UID
    std::string caller;       ///< who asked
    std::string time;         ///< of the attempt: UTC
    std::size_t instances = 0;
    std::size_t failed = 0;         ///< instances that are not there as they were asked for
    std::vector<Failure> failures;  ///< the first hundred of them
    bool reported = false;          ///< the peer has the report
    bool isOver = false;            ///< it will not be tried again
    std::string why;                ///< why it does not have the report; or what it answered, where that was no success
};

/// A report of storage commitment that a peer sent.
struct CommitmentNews {
    struct Instance {
        std::string sopClass;
        std::string sopInstance;
        std::uint16_t failure = 0;  ///< Failure Reason (0008,1197); 0: it is committed
    };
    std::string transaction;  ///< Transaction UID
    std::string caller;
    std::vector<Instance> instances;
};

/// An association that has ended, or a connection that never became one.
struct ReceivedAssociation {
    std::string address;
    std::string caller;  ///< calling AE title; empty where there was no request
    std::string called;  ///< called AE title
    std::string begin;   ///< of the connection: UTC, "2026-01-31T12:00:00.000Z"
    std::string end;     ///< of the association
    bool encrypted = false;
    bool released = false;  ///< ended by a release
    bool rejected = false;  ///< the request was rejected
    std::string error;      ///< empty when it was released
    std::size_t stored = 0;
    std::size_t refused = 0;
};

/// Is told of events as they happen: on several threads, but never on two of them at once. What it throws ends the work
/// and reaches the caller.
class KORVANE_KIT ReceiveObserver {
public:
    ReceiveObserver() = default;
    ReceiveObserver(const ReceiveObserver&) = delete;
    ReceiveObserver& operator=(const ReceiveObserver&) = delete;
    virtual ~ReceiveObserver();

    /// Connections are accepted from now on.
    virtual void OnListening(std::uint16_t port);
    /// A data set has been answered, stored or not.
    virtual void OnFile(const ReceivedFile& file);
    /// An association has ended.
    virtual void OnEnd(const ReceivedAssociation& association);
    /// No file of a study has come for `studyQuiet` seconds; at the end of the work, studies that would be told later.
    virtual void OnStudy(const ReceivedStudy& study);
    /// A request for storage commitment has been reported of, or could not be.
    virtual void OnCommitment(const ReceivedCommitment& commitment);
    /// A peer reports what it has committed. False: nobody here asked for that, and the peer is told so.
    virtual bool OnReport(const CommitmentNews& news);
    /// Called several times a second; the observer may use up to that many milliseconds for its own work. False ends
    /// the receiver.
    virtual bool OnLook(int milliseconds);
};

/// Counts over a whole run of `Receive`.
struct ReceiveReport {
    std::size_t associations = 0;
    std::size_t stored = 0;
    std::size_t refused = 0;
    std::size_t broken = 0;          ///< associations that ended in another way than by release
    std::size_t failedCommands = 0;  ///< studies for which `onStudy` was not started, or failed
};

/// Stores data sets as Part 10 files named "<SOP instance UID>.dcm", whole or not at all, for up to `limit` peers at
/// once, each on a thread of its own. A data set with the same bytes as a file that is there is not stored twice;
/// another one of the same UID gets "-2", "-3" ... behind it. Several receivers may share a folder. Unfinished files of
/// a receiver that was killed are removed at the start, unless another receiver works in the folder.
///
/// Who asks for storage commitment is told of each instance whether it lies in the folder, whole, with that class and UID
/// and on the disk itself: over the same association while that lasts and the peer is silent, else over another with the
/// roles turned to the address in `commitTo`. What is not reported yet is kept in files of the folder
/// ".korvane-commitments" in the receiver's, and taken up by the next receiver there; after a week it is given up.
///
///     korvane::ReceiveReport report = korvane::Receive({.port = 11112, .folder = "in", .count = 1});
///
/// Returns after `count` associations, when the observer ends it, or when the watcher stops it between associations.
/// Throws `Error`: `Disk` when port or folder cannot be had, `WrongArgument` for an address that is none, `Stopped`
/// when the stop broke an association off.
KORVANE_KIT ReceiveReport Receive(const ReceiveOptions& options, ReceiveObserver* observer = nullptr);

/// Events as JSON, an object on one line: "schema" ("korvane.receive"), "version" (1; it grows when a member changes
/// its meaning or goes) and "event": "listening", "file", "association", "study" or "commitment", and the members of the struct.
KORVANE_KIT std::string ListeningJson(std::uint16_t port);
KORVANE_KIT std::string ToJson(const ReceivedFile& file);
KORVANE_KIT std::string ToJson(const ReceivedAssociation& association);
KORVANE_KIT std::string ToJson(const ReceivedStudy& study);
KORVANE_KIT std::string ToJson(const ReceivedCommitment& commitment);

/// A file has a fault where it was not stored, or is odd; an association a line, and a fault where it broke; the report a
/// failure alone, for what was done was told by events.
KORVANE_KIT Outcome OutcomeOf(const ReceivedFile& file);
KORVANE_KIT Outcome OutcomeOf(const ReceivedAssociation& association);
KORVANE_KIT Outcome OutcomeOf(const ReceivedCommitment& commitment);
KORVANE_KIT Outcome OutcomeOf(const ReceiveReport& report);

}  // namespace korvane
