// Sends DICOM files to a storage provider (PS3.4 annex B).
#pragma once

#include "../syntax/TransferSyntaxCodec.h"
#include "DcmService.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A file to be sent, with what must be known of it before.
class StorageFile {
public:
    std::string path;
    std::string sopClass;
    std::string sopInstance;
    std::string transferSyntax;    ///< (0002,0010), or that of the encoding where it is missing
    std::uint64_t dataOffset = 0;  ///< where the data set begins, behind meta information
    std::uint64_t dataLength = 0;  ///< bytes of the data set; 0 where the file has no size (a pipe)

    /// Follows the file's structure without reading its large values. 1, or 0 with the reason in `error`: the file
    /// cannot be read, is no DICOM file, has no SOP class or instance, or is damaged or cut off. (Peers may abort the
    /// association over such a file.)
    int Examine(const std::string& filePath, std::string& error);

private:
    bool Walk(int syntax, std::string& error);
};

/// Makes compressed or deflated data sets fit for peers that do not take them as they are.
class StorageDecoder {
public:
    StorageDecoder() = default;
    StorageDecoder(const StorageDecoder&) = delete;
    StorageDecoder& operator=(const StorageDecoder&) = delete;
    virtual ~StorageDecoder() = default;

    /// Whether data sets of a transfer syntax can be decoded.
    virtual bool CanDecode(const std::string& transferSyntax) const = 0;
    /// The whole data set, nothing in it compressed; null with the reason in `error`.
    virtual std::unique_ptr<DICOMDataObject> Read(const StorageFile& file, std::string& error) = 0;
};

/// The outcome for one file. Where it was stored, `error` is empty; `status` may still be a warning of the provider.
struct StorageResult {
    bool stored = false;
    std::uint16_t status = 0;  ///< of the provider's answer, if there was one
    std::string error;         ///< one line
    std::uint64_t bytes = 0;   ///< bytes of the data set that were sent
    bool decoded = false;      ///< it was compressed or deflated, and went out uncompressed
};

/// Storage as user, on a service that is associated by the caller between `Propose` and `Send`.
///
/// A data set goes out as it lies in the file, piece by piece, where a context with the file's own transfer syntax was
/// agreed on. Otherwise, if the file is not compressed, it is read whole and encoded in an agreed uncompressed syntax;
/// compressed files are sent then only with a decoder. A data set of odd length, which peers refuse, is encoded anew as well.
class StorageUser {
public:
    /// The codec re-encodes, and should have the public dictionary. Both must outlive the object.
    StorageUser(DcmService& service, TransferSyntaxCodec& codec) : m_Service(service), m_Codec(codec) {}

    /// Replaces the proposed contexts by what the files from `first` on need: one for each pair of class and syntax,
    /// and for those that can be encoded anew another with the uncompressed syntaxes. Returns the index behind the last file
    /// that fits into the 128 contexts of one association.
    std::size_t Propose(const std::vector<StorageFile>& files, std::size_t first = 0);

    /// Sends one file (C-STORE) and waits for the response. After a failure `DcmService::GetState` tells whether the
    /// association still exists.
    StorageResult Send(const StorageFile& file);

    /// Called after each block with the bytes of this file sent so far; true stops with A-ABORT. Null: none.
    void SetProgress(std::function<bool(std::uint64_t)> progress) { m_Progress = std::move(progress); }

    /// For compressed files that the peer does not take as they are; null: none. It must outlive the object.
    void SetDecoder(StorageDecoder* decoder) { m_pDecoder = decoder; }

    /// (0000,0700): 0 medium, 1 high, 2 low.
    void SetPriority(std::uint16_t priority) { m_Priority = priority; }

private:
    const AcceptedContext* ChooseContext(const StorageFile& file) const;
    bool SendBytes(const StorageFile& file, std::uint8_t context, const DimseCommand& request, StorageResult& result);
    bool SendEncoded(const StorageFile& file, const AcceptedContext& context, const DimseCommand& request,
                     StorageResult& result);
    std::unique_ptr<DICOMDataObject> Read(const StorageFile& file);
    bool CanDecode(const StorageFile& file) const;
    bool Stop(const std::string& why, StorageResult& result);
    void AwaitAnswer(const DimseCommand& request, StorageResult& result);

    DcmService& m_Service;
    TransferSyntaxCodec& m_Codec;
    std::function<bool(std::uint64_t)> m_Progress;
    StorageDecoder* m_pDecoder = nullptr;
    std::uint16_t m_Priority = 0;
};
