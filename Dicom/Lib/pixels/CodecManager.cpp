#include "CodecManager.h"

#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dataset/ReplaceValue.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/syntax/TransferSyntaxCodec.h"
#include "Dicom/Lib/syntax/TransferSyntaxTable.h"
#include "PixelTranscoder.h"
#include "platform/DynamicModule.h"
#include "platform/File.h"
#include "platform/Fork.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>
#include <new>

namespace {

constexpr char kBundledModule[] = "DcmCodec.dll";
constexpr char kListFile[] = "DcmCodecMgr.ini";
constexpr std::size_t kLineLimit = 260;                  // with the zero behind it
constexpr int kMostCodecs = 1024;                        // of one module: its count is not believed
constexpr std::size_t kMostKept = std::size_t{4} << 20;  // bytes of an encoded frame, until the next one

using Registry = std::map<std::string, CodecEntry, std::less<>>;

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

bool s_initialised = false;

/// Held while registry and use counts are read or changed: managers of several threads share them. Registering comes
/// back to looking up, so one thread may take it again.
std::recursive_mutex& Lock() {
    static platform::HeldWhileForking<std::recursive_mutex, platform::kLoadsLibraries> lock;
    return lock;
}

template <class Function>
Function Find(platform::ModuleHandle module, const char* name) {
    return reinterpret_cast<Function>(platform::FindFunction(module, name));
}

/// The UID of a record; "" when it is none, or not ended.
std::string_view UidOf(const CodecProps& props) {
    const char* const end = std::find(props.transferSyntax, std::end(props.transferSyntax), '\0');
    const bool isUid = end != std::end(props.transferSyntax) && std::all_of(props.transferSyntax, end, [](char c) {
                           return (c >= '0' && c <= '9') || c == '.';
                       });
    return isUid ? std::string_view(props.transferSyntax, static_cast<std::size_t>(end - props.transferSyntax))
                 : std::string_view();
}

void Enter(const char* moduleName, int index, const CodecProps& props) {
    const std::string_view uid = UidOf(props);
    if (uid.empty() || props.version != DCM_CODEC_VERSION) return;
    const auto [place, isNew] = TheRegistry().try_emplace(std::string(uid));
    if (!isNew) return;
    CodecEntry& entry = place->second;
    entry.key = uid;
    entry.props = props;
    entry.moduleName = moduleName;
    entry.index = index;
    RegisterTransferSyntax(uid, kExplicitLittleEndian);
    SetTransferSyntaxCodec(uid, static_cast<std::uint32_t>(TheRegistry().size()), props.abilities);
}

/// The modules that the list file names, each by its whole line.
void ReadList(const std::string& path) {
    std::FILE* const file = platform::OpenFile(path.c_str(), "rt");
    if (file == nullptr) return;
    char line[kLineLimit];
    while (std::fgets(line, sizeof line, file) != nullptr) CodecManager::Register(line, platform::OpenModule(line));
    std::fclose(file);
}

/// Loads the module of an entry and makes its codec; false with the entry as it was.
bool Load(CodecEntry& entry) {
    const platform::ModuleHandle module = platform::OpenModule(entry.moduleName.c_str());
    if (module == nullptr) return false;
    const auto freeCodec = Find<DcmFreeCodecFunction>(module, "DcmFreeCodec");
    const auto getCodec = Find<DcmGetCodecFunction>(module, "DcmGetCodec");
    DcmCodec* const codec = freeCodec != nullptr && getCodec != nullptr ? getCodec(entry.index) : nullptr;
    if (codec == nullptr || codec->size < sizeof(DcmCodec)) {
        if (codec != nullptr) freeCodec(codec);
        platform::CloseModule(module);
        return false;
    }
    entry.module = module;
    entry.codec = codec;
    entry.freeCodec = freeCodec;
    return true;
}

/// The data set and all items in it that have compressed pixel data.
void FindEncapsulated(DICOMObject& dataSet, std::vector<DICOMObject*>& found) {
    for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        if (IsPixelData(*element)) {
            if (IsEncapsulated(element)) found.push_back(&dataSet);
            continue;
        }
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) FindEncapsulated(*element->GetItem(i), found);
    }
}

void EndUse(CodecEntry& entry) {
    if (--entry.useCount > 0) return;
    entry.freeCodec(entry.codec);
    platform::CloseModule(entry.module);
    entry.module = nullptr;
    entry.codec = nullptr;
    entry.freeCodec = nullptr;
}

}  // namespace

CodecManager::CodecManager() {
    TheRegistry();  // outlives every manager, those of static storage included
    Lock();
}

CodecManager::~CodecManager() {
    const std::lock_guard guard(Lock());
    for (CodecEntry* const entry : m_InUse) EndUse(*entry);
    for (CodecEntry* const entry : m_OwnUses) EndUse(*entry);
}

bool CodecManager::Init() {
    const std::lock_guard guard(Lock());
    if (s_initialised) return true;
    s_initialised = true;  // Register comes here too
    TheRegistry().clear();
    const platform::ModuleHandle module = platform::OpenModule(kBundledModule);
    const std::string folder = platform::FolderOf(platform::GetModuleFile(module).substr(0, kLineLimit));
    Register(kBundledModule, module);
    ReadList(folder + kListFile);
    return true;
}

void CodecManager::Register(const char* moduleName, void* module) {
    const std::lock_guard guard(Lock());
    Init();
    if (module == nullptr) return;
    const auto getCount = Find<DcmGetCodecCountFunction>(module, "DcmGetCodecCount");
    const auto getProps = Find<DcmGetCodecPropsFunction>(module, "DcmGetCodecProps");
    if (getCount != nullptr && getProps != nullptr) {
        for (int index = 0; index < kMostCodecs; ++index) {
            CodecProps props{};
            if (getProps(index, &props) == 0) break;
            Enter(moduleName, index, props);
        }
    }
    platform::CloseModule(module);
}

const CodecEntry* CodecManager::FindEntry(std::string_view uid) {
    const std::lock_guard guard(Lock());
    Init();
    const auto found = TheRegistry().find(uid);
    return found != TheRegistry().end() ? &found->second : nullptr;
}

const CodecProps* CodecManager::FindProps(std::string_view uid) {
    const CodecEntry* const entry = FindEntry(uid);
    return entry != nullptr ? &entry->props : nullptr;
}

bool CodecManager::CanDecode(std::string_view uid) {
    const CodecProps* const props = FindProps(uid);
    return IsNativeTransferSyntax(uid) || (props != nullptr && (props->abilities & DCM_CODEC_DECODES) != 0);
}

bool CodecManager::CanEncode(std::string_view uid) {
    const CodecProps* const props = FindProps(uid);
    return props != nullptr && (props->abilities & DCM_CODEC_ENCODES) != 0;
}

DcmCodec* CodecManager::GetCodec(std::string_view uid) {
    const std::lock_guard guard(Lock());
    Init();
    const auto found = TheRegistry().find(uid);
    if (found == TheRegistry().end()) return nullptr;
    CodecEntry& entry = found->second;
    if (entry.codec == nullptr && !Load(entry)) return nullptr;
    ++entry.useCount;
    m_InUse.push_back(&entry);
    return entry.codec;
}

void CodecManager::ReleaseCodec(DcmCodec* codec) {
    const std::lock_guard guard(Lock());
    const auto use = std::find_if(m_InUse.begin(), m_InUse.end(),
                                  [codec](const CodecEntry* entry) { return entry->codec == codec; });
    if (use == m_InUse.end()) return;
    CodecEntry& entry = **use;
    m_InUse.erase(use);
    EndUse(entry);
}

bool CodecManager::Fail(std::string reason) {
    m_Error = std::move(reason);
    return false;
}

template <class Work>
int CodecManager::Guarded(Work work) {
    m_Error.clear();
    try {
        return work() ? 1 : 0;
    } catch (const std::bad_alloc&) {
        return Fail("out of memory");
    } catch (...) {
        return Fail("the codec module threw an exception");
    }
}

template <class Work>
int CodecManager::Changed(DICOMObject* dataSet, Work work) {
    m_bLossy = false;
    m_pToWrite.reset();
    return Guarded([&] { return dataSet != nullptr ? work(*dataSet) : Fail("no data set"); });
}

int CodecManager::Convert(DICOMObject* dataSet, std::string_view targetUid) {
    return Changed(dataSet, [&](DICOMObject& set) { return ConvertTo(set, targetUid); });
}

int CodecManager::Decode(DICOMObject* dataSet) {
    return Changed(dataSet, [this](DICOMObject& set) { return DecodeAll(set, false); });
}

int CodecManager::DecodeForWriting(DICOMObject* dataSet) {
    return Changed(dataSet, [this](DICOMObject& set) { return DecodeAll(set, true); });
}

bool CodecManager::HasFramesToWrite() const {
    return m_pToWrite != nullptr;
}

int CodecManager::WriteFrames(const std::function<bool(std::span<unsigned char>)>& take) {
    const auto transcoder = std::move(m_pToWrite);
    return Guarded([&] {
        if (transcoder == nullptr) return Fail("no frames to write");
        return transcoder->WriteFrames(take) || Fail(transcoder->GetError());
    });
}

/// A codec for work of our own: one use of it stays with this object, whatever uses the caller ends meanwhile.
DcmCodec* CodecManager::Use(std::string_view uid) {
    const std::lock_guard guard(Lock());
    for (const CodecEntry* const entry : m_OwnUses) {
        if (entry->key == uid) return entry->codec;
    }
    m_OwnUses.reserve(m_OwnUses.size() + 1);
    DcmCodec* const codec = GetCodec(uid);
    if (codec == nullptr) return nullptr;
    m_OwnUses.push_back(m_InUse.back());
    m_InUse.pop_back();
    return codec;
}

bool CodecManager::ConvertTo(DICOMObject& dataSet, std::string_view target) {
    const CodecProps* const props = FindProps(target);
    if (props == nullptr) return Fail("no codec for " + std::string(target));
    if ((props->flags & DCM_CODEC_CONVERTS) == 0) return SetSyntax(dataSet, target);
    const VR* const pixelData = dataSet.GetVR(tags::PixelData);
    const bool isEncoded = pixelData == nullptr || IsEncapsulated(pixelData);
    if (isEncoded && TextOf(dataSet, tags::TransferSyntaxUID) == target) return true;
    if ((props->abilities & DCM_CODEC_ENCODES) == 0)
        return Fail("the codec for " + std::string(target) + " only decodes");
    if (!DecodeAll(dataSet, false)) return false;
    if (pixelData == nullptr) return SetSyntax(dataSet, target);
    DcmCodec* const codec = Use(target);
    if (codec == nullptr) return Fail("the codec module for " + std::string(target) + " cannot be loaded");
    PixelTranscoder transcoder(*codec, m_Stop, m_Scratch);
    const bool done = transcoder.Encode(dataSet) && transcoder.Apply(dataSet, target);
    if (m_Scratch.capacity() > kMostKept) std::vector<unsigned char>().swap(m_Scratch);
    if (!done) return Fail(transcoder.GetError());
    return SetSyntax(dataSet, target);
}

/// `isWritten`: frames of the data set itself may wait until it is.
bool CodecManager::DecodeAll(DICOMObject& dataSet, bool isWritten) {
    std::vector<DICOMObject*> images;
    FindEncapsulated(dataSet, images);
    if (images.empty()) return SetSyntax(dataSet, kExplicitLittleEndianUid);
    const std::string syntax = TextOf(dataSet, tags::TransferSyntaxUID);
    if (syntax.empty() || IsNativeTransferSyntax(syntax)) {
        return Fail("compressed pixel data, and no compressed transfer syntax is named");
    }
    const CodecProps* const props = FindProps(syntax);
    if (props == nullptr || (props->abilities & DCM_CODEC_DECODES) == 0) return Fail("no codec for " + syntax);
    DcmCodec* const codec = Use(syntax);
    if (codec == nullptr) return Fail("the codec module for " + syntax + " cannot be loaded");
    const bool exact = (props->abilities & DCM_CODEC_LOSSY) == 0;
    std::vector<std::unique_ptr<PixelTranscoder>> transcoders;
    for (const DICOMObject* const image : images) {
        PixelTranscoder& one = *transcoders.emplace_back(std::make_unique<PixelTranscoder>(*codec, m_Stop, m_Scratch));
        const bool done = isWritten && image == &dataSet ? one.DecodeFirst(*image, exact) : one.Decode(*image);
        if (!done) return Fail((image == &dataSet ? "" : "an image in a sequence: ") + one.GetError());
    }
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (!transcoders[i]->Apply(*images[i], syntax)) return Fail(transcoders[i]->GetError());
        m_bLossy = m_bLossy || transcoders[i]->WasLossy();
        if (transcoders[i]->HasFramesToWrite()) m_pToWrite = std::move(transcoders[i]);
    }
    return SetSyntax(dataSet, kExplicitLittleEndianUid);
}

bool CodecManager::SetSyntax(DICOMObject& dataSet, std::string_view uid) {
    return ReplaceText(dataSet, tags::TransferSyntaxUID, TypeCode("UI"), uid) != 0 || Fail("out of memory");
}
