// The system's own file calls once more, under other names, for the faulty ones to fall back on.
#include "platform/File.h"
#include "platform/FileCalls.h"

#define OpenToRead SystemOpenToRead
#define OpenToWrite SystemOpenToWrite
#define OpenNew SystemOpenNew
#define OpenToAppend SystemOpenToAppend
#define ReadSome SystemReadSome
#define SeekTo SystemSeekTo
#define WriteSome SystemWriteSome
#define SyncFile SystemSyncFile
#define SyncFolderOf SystemSyncFolderOf
#define CloseFile SystemCloseFile
#define RenameOver SystemRenameOver
#define RenameNew SystemRenameNew
#define RemoveFile SystemRemoveFile

#include KORVANE_SYSTEM_FILE_CALLS  // NOLINT(bugprone-suspicious-include): the real answers under other names
