// Codecs for compressed pixel data, in modules of their own: found once a process, loaded when they are asked for.
// How to write a module: CodecModule.h.
#pragma once

#include "../dataset/DICOMObject.h"
#include "CodecModule.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class PixelTranscoder;

/// What a module says about one codec, 72 bytes: see CodecModule.h.
using CodecProps = DcmCodecProps;
static_assert(sizeof(CodecProps) == 72 && offsetof(CodecProps, flags) == 68);

/// A codec in the registry.
struct CodecEntry {
    std::string key;  ///< transfer syntax UID
    CodecProps props{};
    std::string moduleName;     ///< as it is loaded by
    int index = 0;              ///< within the module
    void* module = nullptr;     ///< as the system loaded it; null while not loaded
    DcmCodec* codec = nullptr;  ///< null while not created
    int useCount = 0;
    DcmFreeCodecFunction freeCodec = nullptr;
};

/// The codec modules, and the work on data sets that they are for. The registry is process-wide (once in the dynamic
/// module and once in a host that links the toolkit archive); an object of this class is one user of it, and gives back
/// at its end the codecs that it has in use. Modules stay loaded as long as somebody uses a codec of theirs: who works
/// on many data sets keeps one object for all. For one thread at a time.
///
/// Results are 1 and 0 or null; nothing is thrown.
class CodecManager {
public:
    CodecManager();
    ~CodecManager();
    CodecManager(const CodecManager&) = delete;
    CodecManager& operator=(const CodecManager&) = delete;

    /// Finds the modules, once; later calls return at once, and every other operation begins with it. Returns true.
    ///
    /// The first is "DcmCodec.dll" (`platform::OpenModule` says where it is looked for, and under which name on POSIX);
    /// others are named by the list file "DcmCodecMgr.ini" in its folder, or, where it could not be loaded, in the
    /// program's. Every line of the list is a name exactly as read, with its line break, which callers rely on: since no
    /// file has such a name, only a last line without a line break names a module. Lines of more than 259 characters
    /// count as several.
    static bool Init();

    /// Adds the codecs of a module, under the name that they are loaded by later; the handle, null included, is the
    /// manager's from then on. Of two codecs for one UID the first stays. A syntax without a row in the table of transfer
    /// syntaxes gets one. A module that lacks "DcmGetCodecCount" or "DcmGetCodecProps" adds nothing.
    static void Register(const char* moduleName, void* module);

    /// Null when no codec is registered for the UID.
    static const CodecProps* FindProps(std::string_view uid);
    static const CodecEntry* FindEntry(std::string_view uid);

    /// Whether `Decode` and `Convert` can do something with this syntax: native ones can be decoded.
    static bool CanDecode(std::string_view uid);
    static bool CanEncode(std::string_view uid);

    /// The codec of a syntax, its module loaded when it was not; one more use of it. Null when there is none or its
    /// module fails.
    DcmCodec* GetCodec(std::string_view uid);

    /// Ends one use that this object has got by `GetCodec`. With the last use of all, the codec is destroyed and its
    /// module freed.
    void ReleaseCodec(DcmCodec* codec);

    /// Brings a data set into the syntax of a registered codec, decoding it first when it is in another compressed one,
    /// and sets (0002,0010). 0 when no codec is registered for the target, the uncompressed syntaxes included (`Decode` is
    /// for those), or when decoding or encoding fails; the data set is then as it was, or decoded, and says which.
    ///
    /// A data set without pixel data, or of a codec that does not convert, gets the UID alone. Encoding makes one
    /// fragment a frame behind a basic offset table (empty for fewer than two frames). Pixel data in items of
    /// sequences (icons) is made native, not encoded.
    int Convert(DICOMObject* dataSet, std::string_view targetUid);

    /// Makes all pixel data native, in items of sequences too, and sets (0002,0010) to explicit VR little endian. 0, with
    /// the data set unchanged, when a codec is missing or the data cannot be decoded; the size of the result is bounded
    /// by what the header says, and not taken before the first frame was decoded.
    ///
    /// Attributes follow the pixels (PS3.3 C.7.6.3): photometric interpretation, planar configuration, bits; what was
    /// compressed with loss says so in (0028,2110), (0028,2112), (0028,2114) from then on. Extended offset tables go.
    int Decode(DICOMObject* dataSet);

    /// `Decode` for a data set that is written at once, so that memory never holds all of its frames: where there are
    /// several, only the first is decoded now. (7FE0,0010) at the top then has type and length and no value, and
    /// `WriteFrames` gives that to whoever writes it (`TransferSyntaxCodec::OnWritePixelData`).
    int DecodeForWriting(DICOMObject* dataSet);

    /// Whether `DecodeForWriting` has left frames; the next call of it, `Decode` or `Convert` forgets them.
    bool HasFramesToWrite() const;

    /// Hands the frames over, once and in order; `take` may change what it gets, and answers false to end. The pad of an
    /// odd length is not among them. 0 when a frame cannot be decoded, or, without an error, when `take` declined.
    int WriteFrames(const std::function<bool(std::span<unsigned char> frame)>& take);

    /// Why the last call returned 0, for a person to read.
    const std::string& GetError() const { return m_Error; }

    /// Whether the last `Convert` or `Decode...` decoded pixels that had been compressed with loss.
    bool WasLossy() const { return m_bLossy; }

    /// Asked before each frame; when it answers true, the work ends with a 0.
    void SetStopQuestion(std::function<bool()> question) { m_Stop = std::move(question); }

private:
    bool Fail(std::string reason);
    template <class Work>
    int Guarded(Work work);
    template <class Work>
    int Changed(DICOMObject* dataSet, Work work);
    bool ConvertTo(DICOMObject& dataSet, std::string_view target);
    bool DecodeAll(DICOMObject& dataSet, bool isWritten);
    bool SetSyntax(DICOMObject& dataSet, std::string_view uid);
    DcmCodec* Use(std::string_view uid);

    std::vector<CodecEntry*> m_InUse;    // one for each use that the caller has
    std::vector<CodecEntry*> m_OwnUses;  // one for each codec that this object has worked with
    std::string m_Error;
    bool m_bLossy = false;
    std::function<bool()> m_Stop;
    std::vector<unsigned char> m_Scratch;         // of frames that are encoded
    std::unique_ptr<PixelTranscoder> m_pToWrite;  // with the frames that `DecodeForWriting` left
};
