#pragma once

#include "recording/RecordingTypes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::Recording {

/// The byte layout of a recording file (docs/recording-format.md): the preamble, the framing of
/// records, and the encoding of the session header and of frames. Little-endian throughout.
///
/// Decoding checks every length against the bytes at hand, so a damaged record is reported, never
/// read past. An encoder keeps its buffers (and the compressors') from one frame to the next;
/// it compresses the right image on a thread of its own while it compresses the left one.
class RecordCodec {
public:
    static constexpr std::uint8_t Magic[8] = {0x89, 'K', 'R', 'E', 'C', '\r', '\n', 0x1a};
    /// The format this program writes, and the oldest reader able to read it.
    static constexpr std::uint16_t Version = 3;
    static constexpr std::uint16_t MinimumReaderVersion = 1;
    static constexpr std::size_t PreambleSize = 16;
    /// Length field, type byte / checksum around a record's payload.
    static constexpr std::size_t RecordHeadSize = 5;
    static constexpr std::size_t RecordTailSize = 4;
    /// Larger payloads are refused as damaged (two 16-megapixel images fit).
    static constexpr std::uint32_t MaxPayload = 64u << 20;
    /// Larger decoded images are refused before anything is allocated for them.
    static constexpr std::uint32_t MaxImageBytes = 64u << 20;

    enum RecordType : std::uint8_t {
        SessionRecord = 1,
        FrameRecord = 2,
        EndRecord = 3,
        GeometryRecord = 4,
        GapRecord = 5,
    };

    RecordCodec();
    ~RecordCodec();
    RecordCodec(const RecordCodec&) = delete;
    RecordCodec& operator=(const RecordCodec&) = delete;

    static void encodePreamble(std::vector<std::uint8_t>& out);
    /// A whole record: length, type, payload and checksum, appended to `out`.
    static void frameRecord(RecordType type, const std::vector<std::uint8_t>& payload,
                            std::vector<std::uint8_t>& out);
    static std::uint32_t checksum(std::uint8_t type, const std::uint8_t* payload, std::size_t size);

    static void encodeSession(const SessionHeader& header, std::vector<std::uint8_t>& payload);
    static bool decodeSession(const std::uint8_t* data, std::size_t size, SessionHeader& header,
                              std::string& problem);
    /// Images are compressed (zstd) when `withImages` and the frame has them.
    void encodeFrame(const Frame& frame, bool withImages, std::vector<std::uint8_t>& payload);
    /// Without `images`, the images' encodings and sizes are checked but they are not
    /// decompressed (their bytes are covered by the record's checksum): `frame` gets none.
    /// Before an image is allocated its size is checked: at most MaxImageBytes, and no larger
    /// than the camera's sensor, known from the first frame with images this codec decoded (a
    /// camera's images all have its sensor's size).
    bool decodeFrame(const std::uint8_t* data, std::size_t size, Frame& frame, std::string& problem,
                     bool images = true);
    /// A geometry registered while recording (version 2; older readers skip it).
    static void encodeGeometry(const Geometry& geometry, std::vector<std::uint8_t>& payload);
    static bool decodeGeometry(const std::uint8_t* data, std::size_t size, Geometry& geometry,
                               std::string& problem);
    /// A gap where the camera was lost and reopened (version 3; older readers skip it). The
    /// gap's beforeFrame is not stored: it is its place among the frames.
    static void encodeGap(const Gap& gap, std::vector<std::uint8_t>& payload);
    static bool decodeGap(const std::uint8_t* data, std::size_t size, Gap& gap, std::string& problem);
    static void encodeEnd(std::uint64_t frames, std::uint64_t dropped, std::vector<std::uint8_t>& payload);
    static bool decodeEnd(const std::uint8_t* data, std::size_t size, std::uint64_t& frames,
                          std::uint64_t& dropped);

private:
    /// Whether images of that size may be decoded (see decodeFrame()); the problem otherwise.
    bool imageSizeAllowed(std::uint32_t width, std::uint32_t height, std::string& problem);
    /// Compresses one image with the compressor of its side (0 left, 1 right).
    void compress(int side, const std::vector<std::uint8_t>& image, std::vector<std::uint8_t>& out);
    bool decompress(std::uint8_t encoding, const std::uint8_t* packed, std::size_t packedSize,
                    std::vector<std::uint8_t>& image);

    /// The compressors' states (left, right image: used at the same time on two threads) and
    /// their outputs, kept for the next frame.
    void* m_compressors[2] = {nullptr, nullptr};
    std::vector<std::uint8_t> m_packedLeft;
    std::vector<std::uint8_t> m_packedRight;
    void* m_decompressor = nullptr; ///< The decompressor's state, kept for the next frame.
    /// The sensor's width and height, from the first frame with images decoded (0: none yet).
    std::uint32_t m_sensorWidth = 0;
    std::uint32_t m_sensorHeight = 0;
};

} // namespace Kestrion::Recording
