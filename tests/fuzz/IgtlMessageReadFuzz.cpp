// Fuzz entry point for the reading of what OpenIGTLink clients send: any byte sequence, in
// pieces of any size. The first byte chooses the piece size.
#include "host/igtl/IgtlMessageReader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

using Kestrion::Igtl::IgtlMessageReader;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t piece = 1 + data[0] % 64u;
    ++data;
    --size;
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
