// libFuzzer: the reader of one PDU class, or of command sets. What was read is written and must read the same again. An
// empty corpus folder is seeded first.
#include "../../FuzzCorpus.h"
#include "NetworkPeers.h"

#include <cstdlib>
#include <type_traits>

namespace {

// Reads what stands behind the type byte; what is then written, without that byte.
template <class Pdu>
Bytes Read(Pdu& pdu, const std::uint8_t* bytes, std::size_t count) {
    MemoryInputBuffer in(bytes, count);
    if constexpr (std::is_same_v<Pdu, DimseCommand>) {
        return pdu.Decode(bytes, count) != 0 ? pdu.Encode() : Bytes();
    } else if (pdu.ReadPDU(in, pdu.m_Type) == 0) {
        return {};
    } else if constexpr (std::is_same_v<Pdu, PDataTF>) {
        while (pdu.HasPDV() && pdu.ReadPDV(in) != 0 && in.Skip(pdu.m_DataLength)) {
        }
        return {};
    } else {
        const Bytes written = PduBytes(pdu);
        return Bytes(written.begin() + 1, written.end());
    }
}

Bytes Seed() {
    if constexpr (std::is_same_v<KORVANE_PDU, DimseCommand>) {
        return Join({{0}, StoreCommand().Encode()});
    } else if constexpr (std::is_same_v<KORVANE_PDU, PDataTF>) {
        return DataPdu(1, 3, EchoCommand());
    } else if constexpr (std::is_same_v<KORVANE_PDU, AAssociateRQ>) {
        return PduBytes(Request());
    } else {
        return PduBytes(KORVANE_PDU());
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    const Bytes seed = Seed();
    WriteBytes(corpus + "/seed", Bytes(seed.begin() + 1, seed.end()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    KORVANE_PDU read;
    const Bytes written = Read(read, bytes, count);
    KORVANE_PDU again;
    if (!written.empty() && Read(again, written.data(), written.size()) != written) std::abort();
    return 0;
}
