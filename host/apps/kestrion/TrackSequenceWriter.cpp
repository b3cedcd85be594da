#include "host/apps/kestrion/TrackSequenceWriter.h"

#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentTracking.h"

#include <cctype>
#include <cerrno>

namespace Kestrion::Cli {

namespace {
/// Digits of the frame count in the header, written when the count is known.
constexpr int CountDigits = 10;
} // namespace

std::string TrackSequenceWriter::transformName(const std::string& instrumentId) {
    // A field name ends at the first space or '=' of its header line.
    std::string name = instrumentId;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.')
            c = '-';
    return name.empty() ? "instrument" : name;
}

bool TrackSequenceWriter::open(const std::string& file) {
    if (!m_file.open(file))
        return false;
    std::FILE* out = m_file.stream();
    m_line.resize(1024);
    std::fputs("ObjectType = Image\nNDims = 3\nDimSize = 0 0 ", out);
    m_countAt = std::ftell(out);
    std::fprintf(out, "%0*d\n", CountDigits, 0);
    if (std::fputs("AnatomicalOrientation = RAI\n"
                   "BinaryData = True\n"
                   "BinaryDataByteOrderMSB = False\n"
                   "CompressedData = False\n"
                   "ElementSpacing = 1 1 1\n"
                   "Offset = 0 0 0\n"
                   "TransformMatrix = 1 0 0 0 1 0 0 0 1\n"
                   "ElementType = MET_UCHAR\n"
                   "Kinds = domain domain list\n",
                   out) == EOF)
        return m_file.fail("cannot write", errno);
    return true;
}

bool TrackSequenceWriter::write(std::uint64_t frameIndex, const TrackingStreamData& frame,
                                const DeviceFrameInfo* device) {
    if (!m_file.isOpen() || failed())
        return false;
    std::FILE* out = m_file.stream();
    // One clock for the whole sequence: the device's when the first frame has it.
    if (!m_hasOrigin) {
        m_hasOrigin = true;
        m_deviceClock = device != nullptr;
        m_originUS = m_deviceClock ? device->deviceTimestampUS() : frame.arrivalTimestamp() * 1000;
    }
    const std::uint64_t timeUS =
        m_deviceClock ? (device ? device->deviceTimestampUS() : m_originUS) : frame.arrivalTimestamp() * 1000;
    const double seconds =
        timeUS >= m_originUS ? double(timeUS - m_originUS) / 1e6 : -double(m_originUS - timeUS) / 1e6;
    char prefix[40];
    std::snprintf(prefix, sizeof prefix, "Seq_Frame%04llu_", static_cast<unsigned long long>(m_frames));
    bool ok = std::fprintf(out, "%sFrameNumber = %llu\n%sTimestamp = %.6f\n", prefix,
                           static_cast<unsigned long long>(frameIndex), prefix, seconds) > 0;
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const Eigen::Matrix4d& m = instrument.matrix;
        const std::string name = transformName(instrument.ID());
        ok = ok &&
             std::fprintf(out,
                          "%s%sToTrackerTransform = %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g "
                          "%.9g 0 0 0 1\n%s%sToTrackerTransformStatus = %s\n",
                          prefix, name.c_str(), m(0, 0), m(0, 1), m(0, 2), m(0, 3), m(1, 0), m(1, 1), m(1, 2),
                          m(1, 3), m(2, 0), m(2, 1), m(2, 2), m(2, 3), prefix, name.c_str(),
                          isInstrumentTracked(frame, instrument) ? "OK" : "INVALID") > 0;
    }
    ok = ok && std::fprintf(out, "%sImageStatus = INVALID\n", prefix) > 0;
    if (!ok)
        return m_file.fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    ++m_frames;
    return true;
}

void TrackSequenceWriter::discard() {
    m_file.discard(m_frames == 0);
}

bool TrackSequenceWriter::close() {
    std::FILE* out = m_file.stream();
    if (out && !failed()) {
        // The header's frame count, left blank at open, is known now.
        if (std::fputs("ElementDataFile = LOCAL\n", out) == EOF || std::fflush(out) != 0)
            m_file.fail("write failed after " + std::to_string(m_frames) + " frames", errno);
        else if (std::fseek(out, m_countAt, SEEK_SET) != 0 ||
                 std::fprintf(out, "%0*llu", CountDigits, static_cast<unsigned long long>(m_frames)) < 0 ||
                 std::fflush(out) != 0)
            m_file.fail("cannot write the frame count", errno);
    }
    return m_file.complete();
}

} // namespace Kestrion::Cli
