// Fuzz entry point for the recording reader: any byte sequence as a recording file. Whatever the
// bytes, the reader ends with frames, an end or a message naming the file; it never reads past a
// record, and a frame it accepts has images of the size its header gives.
#include "recording/RecordingReader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

using namespace Kestrion::Recording;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The reader takes a file name: an in-memory file keeps the disk out of the loop.
    static const int fd = memfd_create("recording-fuzz", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(fd);

    RecordingReader reader;
    if (!reader.open(path)) {
        if (reader.error().rfind("recording " + path + ": ", 0) != 0)
            std::abort();
        return 0;
    }
    Frame frame;
    std::uint64_t first = 0;
    for (std::uint64_t n = 0;; ++n) {
        const std::uint64_t at = reader.position();
        const RecordingReader::Next next = reader.next(frame);
        if (next != RecordingReader::Next::Frame)
            break;
        if (n == 0)
            first = at;
        const std::size_t pixels = std::size_t(frame.header.width) * frame.header.height;
        if (frame.hasImages && (frame.imageLeft.size() != pixels || frame.imageRight.size() != pixels))
            std::abort();
    }
    if (reader.framesRead() > 0 && !reader.readFrameAt(first, 0, frame) && reader.error().empty())
        std::abort();
    return 0;
}
