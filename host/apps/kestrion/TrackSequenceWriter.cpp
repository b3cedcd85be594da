#include "host/apps/kestrion/TrackSequenceWriter.h"

#include "host/apps/kestrion/TrackStatistics.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingStreamData.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Kestrion::Cli {

namespace {
/// Digits of the frame count in the header, written when the count is known.
constexpr int CountDigits = 10;
} // namespace

TrackSequenceWriter::~TrackSequenceWriter() {
    if (m_file)
        std::fclose(m_file); // not completed: the ".part" file stays as it is
}

bool TrackSequenceWriter::fail(const std::string& what, int errorNumber) {
    if (m_error.empty())
        m_error = "sequence file " + m_target + ": " + what + ": " + std::strerror(errorNumber);
    return false;
}

std::string TrackSequenceWriter::transformName(const std::string& instrumentId) {
    std::string name;
    for (char c : instrumentId)
        if (std::isalnum(static_cast<unsigned char>(c)))
            name += name.empty() ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    return name.empty() ? "Instrument" : name;
}

bool TrackSequenceWriter::open(const std::string& file) {
    m_target = file;
    m_partialFile = file + ".part";
    m_file = std::fopen(m_partialFile.c_str(), "wx");
    if (!m_file)
        return fail("cannot create " + m_partialFile, errno);
    m_buffer.resize(1 << 20);
    std::setvbuf(m_file, m_buffer.data(), _IOFBF, m_buffer.size());
    m_line.resize(1024);
    std::fputs("ObjectType = Image\nNDims = 3\nDimSize = 0 0 ", m_file);
    m_countAt = std::ftell(m_file);
    std::fprintf(m_file, "%0*d\n", CountDigits, 0);
    if (std::fputs("AnatomicalOrientation = RAI\n"
                   "BinaryData = True\n"
                   "BinaryDataByteOrderMSB = False\n"
                   "CompressedData = False\n"
                   "ElementSpacing = 1 1 1\n"
                   "Offset = 0 0 0\n"
                   "TransformMatrix = 1 0 0 0 1 0 0 0 1\n"
                   "ElementType = MET_UCHAR\n"
                   "Kinds = domain domain list\n",
                   m_file) == EOF)
        return fail("cannot write", errno);
    return true;
}

bool TrackSequenceWriter::write(std::uint64_t frameIndex, const TrackingStreamData& frame,
                                const DeviceFrameInfo* device) {
    if (!m_file || failed())
        return false;
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
    bool ok = std::fprintf(m_file, "%sFrameNumber = %llu\n%sTimestamp = %.6f\n", prefix,
                           static_cast<unsigned long long>(frameIndex), prefix, seconds) > 0;
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const Eigen::Matrix4d& m = instrument.matrix;
        const std::string name = transformName(instrument.ID());
        ok = ok &&
             std::fprintf(m_file,
                          "%s%sToTrackerTransform = %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g "
                          "%.9g 0 0 0 1\n%s%sToTrackerTransformStatus = %s\n",
                          prefix, name.c_str(), m(0, 0), m(0, 1), m(0, 2), m(0, 3), m(1, 0), m(1, 1), m(1, 2),
                          m(1, 3), m(2, 0), m(2, 1), m(2, 2), m(2, 3), prefix, name.c_str(),
                          TrackStatistics::isTracked(instrument) ? "OK" : "INVALID") > 0;
    }
    ok = ok && std::fprintf(m_file, "%sImageStatus = INVALID\n", prefix) > 0;
    if (!ok)
        return fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    ++m_frames;
    return true;
}

void TrackSequenceWriter::discard() {
    if (!m_file)
        return;
    std::fclose(m_file);
    m_file = nullptr;
    if (m_frames == 0)
        std::remove(m_partialFile.c_str());
}

bool TrackSequenceWriter::close() {
    if (!m_file)
        return !failed();
    bool ok = !failed();
    if (ok && std::fputs("ElementDataFile = LOCAL\n", m_file) == EOF)
        ok = fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    if (ok && (std::fseek(m_file, m_countAt, SEEK_SET) != 0 ||
               std::fprintf(m_file, "%0*llu", CountDigits, static_cast<unsigned long long>(m_frames)) < 0))
        ok = fail("cannot write the frame count", errno);
    if (ok && std::fflush(m_file) != 0)
        ok = fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    if (ok && ::fsync(::fileno(m_file)) != 0)
        ok = fail("cannot flush to disk", errno);
    if (std::fclose(m_file) != 0 && ok)
        ok = fail("cannot close", errno);
    m_file = nullptr;
    if (ok && std::rename(m_partialFile.c_str(), m_target.c_str()) != 0)
        ok = fail("cannot rename " + m_partialFile + " to it", errno);
    return ok;
}

} // namespace Kestrion::Cli
