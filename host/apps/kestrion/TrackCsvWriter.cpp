#include "host/apps/kestrion/TrackCsvWriter.h"

#include "host/apps/kestrion/TrackStatistics.h"
#include "host/apps/kestrion/TrackTipColumns.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStreamData.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <unistd.h>

namespace Kestrion::Cli {

namespace {
const char* const Header =
    "frame,device_counter,arrival_ms,device_ms,device_time_us,instrument,name,tracked,quality,"
    "x_mm,y_mm,z_mm,r11,r12,r13,r21,r22,r23,r31,r32,r33,registration_error_mm,status,reason";

/// A CSV field: quoted when it holds a separator, a quote or a line break.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\n\r") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}
} // namespace

TrackCsvWriter::~TrackCsvWriter() {
    if (m_file)
        std::fclose(m_file); // not completed: the ".part" file stays as it is
}

bool TrackCsvWriter::fail(const std::string& what, int errorNumber) {
    if (m_error.empty())
        m_error = "CSV file " + m_target + ": " + what + ": " + std::strerror(errorNumber);
    return false;
}

bool TrackCsvWriter::open(const std::string& file, bool tipColumns) {
    m_tipColumns = tipColumns;
    m_target = file;
    m_partialFile = file + ".part";
    // Exclusive creation: a file of that name that exists is someone else's, never overwritten.
    m_file = std::fopen(m_partialFile.c_str(), "wx");
    if (!m_file)
        return fail("cannot create " + m_partialFile, errno);
    m_buffer.resize(1 << 20);
    std::setvbuf(m_file, m_buffer.data(), _IOFBF, m_buffer.size());
    m_line.resize(4096);
    if (std::fputs(Header, m_file) == EOF ||
        (tipColumns && std::fputs(TrackTipColumns::csvHeader(), m_file) == EOF) ||
        std::fputs("\n", m_file) == EOF)
        return fail("cannot write", errno);
    return true;
}

bool TrackCsvWriter::write(std::uint64_t frameIndex, const TrackingStreamData& frame,
                           const DeviceFrameInfo* device) {
    if (!m_file || failed())
        return false;
    char deviceCounter[24] = "";
    char deviceTime[24] = "";
    if (device) {
        std::snprintf(deviceCounter, sizeof deviceCounter, "%u", device->frameCounter());
        std::snprintf(deviceTime, sizeof deviceTime, "%llu",
                      static_cast<unsigned long long>(device->deviceTimestampUS()));
    }
    const InstrumentStatusData* status = frame.component<InstrumentStatusData>();
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const Eigen::Matrix4d& m = instrument.matrix;
        const bool tracked = TrackStatistics::isTracked(instrument);
        // An untracked instrument has no pose: its fields stay empty.
        char pose[256] = ",,,,,,,,,,,";
        if (tracked)
            std::snprintf(pose, sizeof pose, "%.4f,%.4f,%.4f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f",
                          m(0, 3), m(1, 3), m(2, 3), m(0, 0), m(0, 1), m(0, 2), m(1, 0), m(1, 1), m(1, 2),
                          m(2, 0), m(2, 1), m(2, 2));
        const InstrumentStatusData::Entry* entry = status ? status->find(instrument.ID()) : nullptr;
        char error[32] = "";
        if (entry && std::isfinite(entry->registrationErrorMm))
            std::snprintf(error, sizeof error, "%.4f", entry->registrationErrorMm);
        int length = std::snprintf(
            m_line.data(), m_line.size(), "%llu,%s,%llu,%llu,%s,%s,%s,%d,%.4f,%s,%s,%s,%s",
            static_cast<unsigned long long>(frameIndex), deviceCounter,
            static_cast<unsigned long long>(frame.arrivalTimestamp()),
            static_cast<unsigned long long>(frame.deviceTimestamp()), deviceTime,
            csvField(instrument.ID()).c_str(), csvField(instrument.id.name).c_str(), tracked ? 1 : 0,
            instrument.quality, pose, error, entry ? InstrumentStatusData::stateName(entry->state) : "",
            entry ? csvField(entry->reason).c_str() : "");
        if (m_tipColumns && length >= 0 && static_cast<std::size_t>(length) < m_line.size())
            length += TrackTipColumns::csvFields(m_line.data() + length,
                                                 m_line.size() - static_cast<std::size_t>(length), frame,
                                                 instrument.ID());
        if (length >= 0 && static_cast<std::size_t>(length) + 1 < m_line.size())
            m_line[static_cast<std::size_t>(length++)] = '\n';
        else
            length = static_cast<int>(m_line.size()); // too long, below
        if (length < 0 || static_cast<std::size_t>(length) >= m_line.size()) {
            errno = EOVERFLOW;
            return fail("row too long for instrument " + instrument.ID(), errno);
        }
        if (std::fwrite(m_line.data(), 1, static_cast<std::size_t>(length), m_file) !=
            static_cast<std::size_t>(length))
            return fail("write failed after " + std::to_string(m_rows) + " rows", errno);
        ++m_rows;
    }
    return true;
}

void TrackCsvWriter::discard() {
    if (!m_file)
        return;
    std::fclose(m_file);
    m_file = nullptr;
    if (m_rows == 0)
        std::remove(m_partialFile.c_str());
}

bool TrackCsvWriter::close() {
    if (!m_file)
        return !failed();
    bool ok = !failed();
    if (std::fflush(m_file) != 0)
        ok = fail("write failed after " + std::to_string(m_rows) + " rows", errno);
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
