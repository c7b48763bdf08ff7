// Encrypted connections (TLS; PS3.15 B, secure transport connection profiles).
#pragma once

#include "../core/KitExport.h"

#include <map>
#include <string>
#include <vector>

namespace korvane {

/// What both sides must be able to do. Either takes TLS 1.2 and 1.3, and nothing older.
enum class TlsProfile {
    Bcp195,         ///< the non-downgrading BCP 195 profile: forward secrecy and authenticated encryption
    ExtendedBcp195  ///< of these the strong ones alone: AES with 256 bits, or ChaCha20
};

/// "bcp195", "bcp195-extended".
KORVANE_KIT const std::map<std::string, TlsProfile>& TlsProfileWords();

/// Whether and how a connection is encrypted. Files are PEM. The registered port for DICOM over TLS is 2762.
struct TlsOptions {
    bool isOn = false;
    TlsProfile profile = TlsProfile::Bcp195;
    /// The own certificate, and behind it those between it and the root. A receiver must have one; to a sender it is
    /// what receivers may ask for.
    std::string certificate;
    std::string key;  ///< its private key, without a password; empty: in the file of the certificate
    /// Files with certificates of authorities. Who connects to a peer trusts the system's where there are none; a
    /// receiver with some takes only peers that have a certificate of theirs, and without any takes everybody.
    std::vector<std::string> authorities;
    bool checksName = true;  ///< the peer's certificate must be for the host that was connected to
};

/// Whether this build can encrypt.
KORVANE_KIT bool HasTls();

}  // namespace korvane
