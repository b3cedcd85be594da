// Fuzz entry point for the reading of what OpenIGTLink clients send: any byte sequence, in
// pieces of any size. The first byte chooses the piece size and, with its high bit, whether the
// CRC of every message is made to match its body first, so that the mutations reach what lies
// behind the CRC check (the extended header and metadata sizes of header version 2, the request
// contents).
#include "host/igtl/IgtlMessageReader.h"

#include <igtl_util.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

using Kestrion::Igtl::IgtlMessageReader;

namespace {
std::uint64_t bigEndian(const std::uint8_t* bytes, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

/// Writes into each message's header the CRC of its body, message after message.
void reseal(std::vector<std::uint8_t>& bytes) {
    constexpr std::size_t Header = IgtlMessageReader::HeaderSize;
    for (std::size_t at = 0; at + Header <= bytes.size();) {
        const std::uint64_t body = bigEndian(&bytes[at + 42], 8);
        if (body > bytes.size() - at - Header)
            return;
        const std::uint64_t crc = crc64(bytes.data() + at + Header, body, 0);
        for (int i = 0; i < 8; ++i)
            bytes[at + 50 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(crc >> (8 * (7 - i)));
        at += Header + static_cast<std::size_t>(body);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t inputSize) {
    if (inputSize == 0)
        return 0;
    const std::size_t piece = 1 + input[0] % 64u;
    std::vector<std::uint8_t> bytes(input + 1, input + inputSize);
    if (input[0] & 0x80)
        reseal(bytes);
    const std::uint8_t* data = bytes.data();
    const std::size_t size = bytes.size();
    IgtlMessageReader reader(4096);
    std::vector<IgtlMessageReader::Request> requests;
    bool ok = true;
    for (std::size_t at = 0; at < size && ok; at += piece)
        ok = reader.read(data + at, std::min(piece, size - at), requests);
    if (ok != reader.error().empty())
        std::abort();
    for (const auto& request : requests)
        if (request.resolutionMs < 0)
            std::abort();

    // The pieces make no difference: read whole, the same requests and the same error.
    IgtlMessageReader whole(4096);
    std::vector<IgtlMessageReader::Request> again;
    whole.read(data, size, again);
    if (again.size() != requests.size() || whole.error() != reader.error())
        std::abort();
    for (std::size_t i = 0; i < again.size(); ++i)
        if (again[i].kind != requests[i].kind || again[i].resolutionMs != requests[i].resolutionMs)
            std::abort();
    return 0;
}
