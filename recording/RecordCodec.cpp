#include "recording/RecordCodec.h"

#include <zlib.h>
#include <zstd.h>

#include <cstring>
#include <future>
#include <limits>
#include <type_traits>
#include <utility>

namespace Kestrion::Recording {

namespace {

/// Appends little-endian values.
class Out {
public:
    explicit Out(std::vector<std::uint8_t>& bytes)
        : m_bytes(bytes) {}
    template <typename T>
    void put(T value) {
        static_assert(std::is_trivially_copyable_v<T>);
        std::uint8_t raw[sizeof(T)];
        std::memcpy(raw, &value, sizeof(T)); // the supported targets are little-endian
        m_bytes.insert(m_bytes.end(), raw, raw + sizeof(T));
    }
    void bytes(const void* data, std::size_t size) {
        const auto* p = static_cast<const std::uint8_t*>(data);
        m_bytes.insert(m_bytes.end(), p, p + size);
    }
    void text(const std::string& s) {
        put(static_cast<std::uint32_t>(s.size()));
        bytes(s.data(), s.size());
    }

private:
    std::vector<std::uint8_t>& m_bytes;
};

/// Reads little-endian values; every read checks the bytes left and the first shortfall sticks.
class In {
public:
    In(const std::uint8_t* data, std::size_t size)
        : m_data(data)
        , m_left(size) {}
    template <typename T>
    T get() {
        T value{};
        if (take(sizeof(T)))
            std::memcpy(&value, m_data - sizeof(T), sizeof(T));
        return value;
    }
    const std::uint8_t* bytes(std::size_t size) { return take(size) ? m_data - size : nullptr; }
    std::string text() {
        const auto size = get<std::uint32_t>();
        const std::uint8_t* p = bytes(size);
        return p ? std::string(reinterpret_cast<const char*>(p), size) : std::string();
    }
    /// A count of entries of at least `entrySize` bytes each: refused when the bytes left cannot
    /// hold them (a damaged count must not make the reader allocate gigabytes).
    std::uint32_t count(std::size_t entrySize) {
        const auto n = get<std::uint32_t>();
        if (ok() && static_cast<std::uint64_t>(n) * entrySize > m_left)
            m_ok = false;
        return ok() ? n : 0;
    }
    bool ok() const { return m_ok; }
    bool atEnd() const { return m_left == 0; }

private:
    bool take(std::size_t size) {
        if (!m_ok || size > m_left) {
            m_ok = false;
            return false;
        }
        m_data += size;
        m_left -= size;
        return true;
    }
    const std::uint8_t* m_data;
    std::size_t m_left;
    bool m_ok = true;
};

constexpr std::size_t RawSize = 4 + 4 + 4 + 4 + 2 + 2;
constexpr std::size_t FiducialSize = 4 * 3 + 4 * 3 + 4 * 3;
constexpr std::size_t MarkerSize = 4 * 4 + 4 * 6 + 4 * 9 + 4 * 3 + 4;
/// Image encodings: deflate (zlib, written by the first recorders, still read) and zstd.
constexpr std::uint8_t Deflate = 1;
constexpr std::uint8_t Zstd = 2;

void putRaw(Out& o, const std::vector<RawDetection>& list) {
    o.put(static_cast<std::uint32_t>(list.size()));
    for (const RawDetection& r : list) {
        o.put(r.centerXPixels);
        o.put(r.centerYPixels);
        o.put(r.status);
        o.put(r.pixelsCount);
        o.put(r.width);
        o.put(r.height);
    }
}

void getRaw(In& in, std::vector<RawDetection>& list) {
    list.resize(in.count(RawSize));
    for (RawDetection& r : list) {
        r.centerXPixels = in.get<float>();
        r.centerYPixels = in.get<float>();
        r.status = in.get<std::uint32_t>();
        r.pixelsCount = in.get<std::uint32_t>();
        r.width = in.get<std::uint16_t>();
        r.height = in.get<std::uint16_t>();
    }
}

template <typename T, std::size_t N>
void putArray(Out& o, const std::array<T, N>& values) {
    for (T v : values)
        o.put(v);
}

template <typename T, std::size_t N>
void getArray(In& in, std::array<T, N>& values) {
    for (T& v : values)
        v = in.get<T>();
}

bool inflateImage(const std::uint8_t* packed, std::size_t packedSize, std::vector<std::uint8_t>& image) {
    uLongf size = static_cast<uLongf>(image.size());
    return ::uncompress(image.data(), &size, packed, static_cast<uLong>(packedSize)) == Z_OK &&
           size == image.size();
}

/// A geometry: `u32` id, `u8` version, `u32` point count, per point 3 x `f32` (mm), its file.
void putGeometry(Out& o, const Geometry& g) {
    o.put(g.id);
    o.put(g.version);
    o.put(static_cast<std::uint32_t>(g.pointsMM.size()));
    for (const auto& p : g.pointsMM)
        putArray(o, p);
    o.text(g.path);
}

void getGeometry(In& in, Geometry& g) {
    g.id = in.get<std::uint32_t>();
    g.version = in.get<std::uint8_t>();
    g.pointsMM.resize(in.count(12));
    for (auto& p : g.pointsMM)
        getArray(in, p);
    g.path = in.text();
}

} // namespace

RecordCodec::RecordCodec() = default;

RecordCodec::~RecordCodec() {
    for (void* compressor : m_compressors)
        ZSTD_freeCCtx(static_cast<ZSTD_CCtx*>(compressor));
    ZSTD_freeDCtx(static_cast<ZSTD_DCtx*>(m_decompressor));
}

void RecordCodec::encodePreamble(std::vector<std::uint8_t>& out) {
    Out o(out);
    o.bytes(Magic, sizeof Magic);
    o.put(Version);
    o.put(MinimumReaderVersion);
    o.put(std::uint32_t(0)); // reserved
}

std::uint32_t RecordCodec::checksum(std::uint8_t type, const std::uint8_t* payload, std::size_t size) {
    uLong crc = crc32(0L, &type, 1);
    // crc32 takes 32-bit lengths: payloads are bounded by MaxPayload.
    crc = crc32(crc, payload, static_cast<uInt>(size));
    return static_cast<std::uint32_t>(crc);
}

void RecordCodec::frameRecord(RecordType type, const std::vector<std::uint8_t>& payload,
                              std::vector<std::uint8_t>& out) {
    Out o(out);
    o.put(static_cast<std::uint32_t>(payload.size()));
    o.put(static_cast<std::uint8_t>(type));
    o.bytes(payload.data(), payload.size());
    o.put(checksum(type, payload.data(), payload.size()));
}

void RecordCodec::encodeSession(const SessionHeader& h, std::vector<std::uint8_t>& payload) {
    payload.clear();
    Out o(payload);
    o.put(h.deviceType);
    o.put(h.serialNumber);
    o.text(h.deviceName);
    o.put(h.startedUS);
    o.put(static_cast<std::uint8_t>(h.withImages));
    o.put(static_cast<std::uint32_t>(h.options.size()));
    for (const OptionValue& v : h.options) {
        o.put(v.id);
        o.text(v.name);
        o.put(static_cast<std::uint8_t>(v.type));
        o.put(static_cast<std::uint8_t>(v.readable));
        o.put(v.intValue);
        o.put(v.floatValue);
        o.text(v.data);
    }
    o.put(static_cast<std::uint32_t>(h.geometries.size()));
    for (const Geometry& g : h.geometries)
        putGeometry(o, g);
}

bool RecordCodec::decodeSession(const std::uint8_t* data, std::size_t size, SessionHeader& h,
                                std::string& problem) {
    In in(data, size);
    h.deviceType = in.get<std::int32_t>();
    h.serialNumber = in.get<std::uint64_t>();
    h.deviceName = in.text();
    h.startedUS = in.get<std::uint64_t>();
    h.withImages = in.get<std::uint8_t>() != 0;
    h.options.resize(in.count(4 + 4 + 1 + 1 + 4 + 4 + 4));
    for (OptionValue& v : h.options) {
        v.id = in.get<std::uint32_t>();
        v.name = in.text();
        const auto type = in.get<std::uint8_t>();
        if (type != 0 && type != 1 && type != 3) {
            problem = "option " + std::to_string(v.id) + " has the unknown type " + std::to_string(type);
            return false;
        }
        v.type = static_cast<OptionValue::Type>(type);
        v.readable = in.get<std::uint8_t>() != 0;
        v.intValue = in.get<std::int32_t>();
        v.floatValue = in.get<float>();
        v.data = in.text();
    }
    h.geometries.resize(in.count(4 + 1 + 4 + 4));
    for (Geometry& g : h.geometries)
        getGeometry(in, g);
    if (!in.ok() || !in.atEnd()) {
        problem = in.ok() ? "the session header has bytes left over" : "the session header is cut short";
        return false;
    }
    return true;
}

void RecordCodec::encodeGeometry(const Geometry& geometry, std::vector<std::uint8_t>& payload) {
    payload.clear();
    Out o(payload);
    putGeometry(o, geometry);
}

bool RecordCodec::decodeGeometry(const std::uint8_t* data, std::size_t size, Geometry& geometry,
                                 std::string& problem) {
    In in(data, size);
    getGeometry(in, geometry);
    if (!in.ok() || !in.atEnd()) {
        problem = in.ok() ? "the geometry record has bytes left over" : "the geometry record is cut short";
        return false;
    }
    return true;
}

void RecordCodec::encodeGap(const Gap& gap, std::vector<std::uint8_t>& payload) {
    payload.clear();
    Out o(payload);
    o.put(gap.interruptedUS);
    o.put(gap.resumedUS);
}

bool RecordCodec::decodeGap(const std::uint8_t* data, std::size_t size, Gap& gap, std::string& problem) {
    In in(data, size);
    gap.interruptedUS = in.get<std::uint64_t>();
    gap.resumedUS = in.get<std::uint64_t>();
    if (!in.ok() || !in.atEnd()) {
        problem = in.ok() ? "the gap record has bytes left over" : "the gap record is cut short";
        return false;
    }
    return true;
}

void RecordCodec::compress(int side, const std::vector<std::uint8_t>& image, std::vector<std::uint8_t>& out) {
    auto* context = static_cast<ZSTD_CCtx*>(m_compressors[side]);
    if (!context) {
        context = ZSTD_createCCtx();
        // The fastest settings that still code the images' dark, noisy background well: camera
        // images at 54 Hz must be compressed as fast as they come.
        ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, 1);
        ZSTD_CCtx_setParameter(context, ZSTD_c_minMatch, 7);
        m_compressors[side] = context;
    }
    const std::size_t bound = ZSTD_compressBound(image.size());
    const std::size_t at = out.size();
    out.resize(at + bound);
    const std::size_t packed = ZSTD_compress2(context, out.data() + at, bound, image.data(), image.size());
    // With the bound's room compression cannot fail; an error would leave an empty image.
    out.resize(at + (ZSTD_isError(packed) ? 0 : packed));
}

bool RecordCodec::decompress(std::uint8_t encoding, const std::uint8_t* packed, std::size_t packedSize,
                             std::vector<std::uint8_t>& image) {
    if (encoding == Deflate)
        return inflateImage(packed, packedSize, image);
    auto* context = static_cast<ZSTD_DCtx*>(m_decompressor);
    if (!context)
        m_decompressor = context = ZSTD_createDCtx();
    const std::size_t size = ZSTD_decompressDCtx(context, image.data(), image.size(), packed, packedSize);
    return !ZSTD_isError(size) && size == image.size();
}

void RecordCodec::encodeFrame(const Frame& f, bool withImages, std::vector<std::uint8_t>& payload) {
    payload.clear();
    Out o(payload);
    o.put(f.hostTimeUS);
    for (std::int8_t s : f.statuses)
        o.put(s);
    o.put(static_cast<std::uint8_t>(f.hasImageHeader));
    o.put(f.header.timestampUS);
    o.put(f.header.desynchroUS);
    o.put(f.header.counter);
    o.put(f.header.format);
    o.put(f.header.width);
    o.put(f.header.height);
    o.put(f.header.strideBytes);
    putRaw(o, f.rawLeft);
    putRaw(o, f.rawRight);
    o.put(static_cast<std::uint32_t>(f.fiducials.size()));
    for (const Fiducial& d : f.fiducials) {
        o.put(d.status);
        o.put(d.leftIndex);
        o.put(d.rightIndex);
        putArray(o, d.positionMM);
        o.put(d.epipolarErrorPixels);
        o.put(d.triangulationErrorMM);
        o.put(d.probability);
    }
    o.put(static_cast<std::uint32_t>(f.markers.size()));
    for (const Marker& m : f.markers) {
        o.put(m.status);
        o.put(m.trackingId);
        o.put(m.geometryId);
        o.put(m.presenceMask);
        putArray(o, m.correspondences);
        putArray(o, m.rotation);
        putArray(o, m.translationMM);
        o.put(m.registrationErrorMM);
    }
    const bool images = withImages && f.hasImages;
    o.put(static_cast<std::uint8_t>(images));
    if (!images)
        return;
    // The two images are compressed at the same time, the right one on a helper thread: one
    // thread alone would need most of a core for a camera's 54 frames a second.
    std::future<void> right = std::async(std::launch::async, [this, &f] {
        m_packedRight.clear();
        compress(1, f.imageRight, m_packedRight);
    });
    m_packedLeft.clear();
    compress(0, f.imageLeft, m_packedLeft);
    right.get();
    for (const auto& [image, packed] :
         {std::pair{&f.imageLeft, &m_packedLeft}, std::pair{&f.imageRight, &m_packedRight}}) {
        o.put(Zstd);
        o.put(static_cast<std::uint32_t>(image->size()));
        o.put(static_cast<std::uint32_t>(packed->size()));
        o.bytes(packed->data(), packed->size());
    }
}

bool RecordCodec::decodeFrame(const std::uint8_t* data, std::size_t size, Frame& f, std::string& problem,
                              bool images) {
    In in(data, size);
    f.hostTimeUS = in.get<std::uint64_t>();
    for (std::int8_t& s : f.statuses)
        s = in.get<std::int8_t>();
    f.hasImageHeader = in.get<std::uint8_t>() != 0;
    f.header.timestampUS = in.get<std::uint64_t>();
    f.header.desynchroUS = in.get<std::uint64_t>();
    f.header.counter = in.get<std::uint32_t>();
    f.header.format = in.get<std::uint8_t>();
    f.header.width = in.get<std::uint16_t>();
    f.header.height = in.get<std::uint16_t>();
    f.header.strideBytes = in.get<std::int32_t>();
    getRaw(in, f.rawLeft);
    getRaw(in, f.rawRight);
    f.fiducials.resize(in.count(FiducialSize));
    for (Fiducial& d : f.fiducials) {
        d.status = in.get<std::uint32_t>();
        d.leftIndex = in.get<std::uint32_t>();
        d.rightIndex = in.get<std::uint32_t>();
        getArray(in, d.positionMM);
        d.epipolarErrorPixels = in.get<float>();
        d.triangulationErrorMM = in.get<float>();
        d.probability = in.get<float>();
    }
    f.markers.resize(in.count(MarkerSize));
    for (Marker& m : f.markers) {
        m.status = in.get<std::uint32_t>();
        m.trackingId = in.get<std::uint32_t>();
        m.geometryId = in.get<std::uint32_t>();
        m.presenceMask = in.get<std::uint32_t>();
        getArray(in, m.correspondences);
        getArray(in, m.rotation);
        getArray(in, m.translationMM);
        m.registrationErrorMM = in.get<float>();
    }
    f.hasImages = in.get<std::uint8_t>() != 0;
    if (!in.ok()) {
        problem = "the frame record is cut short";
        return false;
    }
    const std::size_t expected = std::size_t(f.header.width) * f.header.height;
    if (f.hasImages && !imageSizeAllowed(f.header.width, f.header.height, problem))
        return false;
    for (std::vector<std::uint8_t>* image : {&f.imageLeft, &f.imageRight}) {
        if (!f.hasImages) {
            image->clear();
            continue;
        }
        const auto encoding = in.get<std::uint8_t>();
        const auto rawSize = in.get<std::uint32_t>();
        const auto packedSize = in.get<std::uint32_t>();
        const std::uint8_t* packed = in.bytes(packedSize);
        if (!in.ok()) {
            problem = "an image is cut short";
            return false;
        }
        if (encoding != Deflate && encoding != Zstd) {
            problem = "an image has the unknown encoding " + std::to_string(encoding);
            return false;
        }
        if (rawSize != expected) {
            problem = "an image holds " + std::to_string(rawSize) + " bytes instead of " +
                      std::to_string(f.header.width) + " x " + std::to_string(f.header.height);
            return false;
        }
        if (!images) {
            image->clear();
            continue;
        }
        image->resize(rawSize);
        if (!decompress(encoding, packed, packedSize, *image)) {
            problem = "an image does not decompress";
            return false;
        }
    }
    if (!in.atEnd()) {
        problem = "the frame record has bytes left over";
        return false;
    }
    return true;
}

bool RecordCodec::imageSizeAllowed(std::uint32_t width, std::uint32_t height, std::string& problem) {
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    if (std::uint64_t(width) * height > MaxImageBytes) {
        problem =
            "an image of " + size + " is over the limit of " + std::to_string(MaxImageBytes >> 20) + " MiB";
        return false;
    }
    if (m_sensorWidth == 0) {
        m_sensorWidth = width;
        m_sensorHeight = height;
    } else if (width > m_sensorWidth || height > m_sensorHeight) {
        problem = "an image of " + size + " is larger than the camera's sensor (" +
                  std::to_string(m_sensorWidth) + " x " + std::to_string(m_sensorHeight) +
                  ", the size of the recording's first images)";
        return false;
    }
    return true;
}

void RecordCodec::encodeEnd(std::uint64_t frames, std::uint64_t dropped, std::vector<std::uint8_t>& payload) {
    payload.clear();
    Out o(payload);
    o.put(frames);
    o.put(dropped);
}

bool RecordCodec::decodeEnd(const std::uint8_t* data, std::size_t size, std::uint64_t& frames,
                            std::uint64_t& dropped) {
    In in(data, size);
    frames = in.get<std::uint64_t>();
    dropped = in.get<std::uint64_t>();
    return in.ok() && in.atEnd();
}

std::size_t Frame::byteSize() const {
    return sizeof(Frame) + (rawLeft.size() + rawRight.size()) * sizeof(RawDetection) +
           fiducials.size() * sizeof(Fiducial) + markers.size() * sizeof(Marker) + imageLeft.size() +
           imageRight.size();
}

} // namespace Kestrion::Recording
