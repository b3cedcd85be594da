// Fuzz entry point for the record decoders themselves: the input is a list of records without
// their checksums ([type u8][length u32 little-endian][payload]...), each decoded directly and then,
// framed with a checksum that matches, read back as a recording file. Unlike a fuzzed file, whose
// checksums stop nearly every mutation, every mutation here reaches the decoders.
#include "recording/RecordCodec.h"
#include "recording/RecordingReader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace Kestrion::Recording;

namespace {

/// A decoded frame's images have the size of its header and stay within the decoder's limit.
void checkImages(const Frame& frame) {
    const std::size_t pixels = std::size_t(frame.header.width) * frame.header.height;
    if (frame.hasImages && !frame.imageLeft.empty() &&
        (frame.imageLeft.size() != pixels || frame.imageRight.size() != pixels ||
         pixels > RecordCodec::MaxImageBytes))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> file;
    RecordCodec::encodePreamble(file);
    RecordCodec codec;
    Frame frame;
    std::string problem;
    while (size >= 5) {
        const std::uint8_t type = data[0];
        std::uint32_t length = 0;
        std::memcpy(&length, data + 1, 4);
        data += 5;
        size -= 5;
        length = static_cast<std::uint32_t>(std::min<std::size_t>(length, size));
        const std::vector<std::uint8_t> payload(data, data + length);
        data += length;
        size -= length;
        SessionHeader header;
        Geometry geometry;
        Gap gap;
        std::uint64_t frames = 0, dropped = 0;
        switch (type) {
        case RecordCodec::SessionRecord:
            RecordCodec::decodeSession(payload.data(), payload.size(), header, problem);
            break;
        case RecordCodec::FrameRecord:
            if (codec.decodeFrame(payload.data(), payload.size(), frame, problem))
                checkImages(frame);
            break;
        case RecordCodec::GeometryRecord:
            RecordCodec::decodeGeometry(payload.data(), payload.size(), geometry, problem);
            break;
        case RecordCodec::GapRecord:
            RecordCodec::decodeGap(payload.data(), payload.size(), gap, problem);
            break;
        case RecordCodec::EndRecord:
            RecordCodec::decodeEnd(payload.data(), payload.size(), frames, dropped);
            break;
        default:
            break;
        }
        RecordCodec::frameRecord(static_cast<RecordCodec::RecordType>(type), payload, file);
    }

    // The same records as a file, their checksums matching: the reader decodes each in turn.
    static const int fd = memfd_create("record-decode-fuzz", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0 ||
        pwrite(fd, file.data(), file.size(), 0) != static_cast<ssize_t>(file.size()))
        std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    RecordingReader reader;
    if (!reader.open(path))
        return 0;
    while (reader.next(frame) == RecordingReader::Next::Frame)
        checkImages(frame);
    if (!reader.error().empty() && reader.error().rfind("recording " + path + ": ", 0) != 0)
        std::abort();
    return 0;
}
