#include "host/apps/kestrion/TrackCsvWriter.h"

#include "host/apps/kestrion/TrackReferenceColumns.h"
#include "host/apps/kestrion/TrackTipColumns.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentTracking.h"

#include <cerrno>
#include <cmath>

namespace Kestrion::Cli {

namespace {
const char* const Header =
    "frame,device_counter,arrival_ms,device_ms,device_time_us,capture_us,instrument,name,tracked,quality,"
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

/// The status's reason, and that the reference was not seen when a reference is chosen.
std::string reasonWithReference(const std::string& reason, const TrackingStreamData& frame,
                                const std::string& id) {
    const std::string note = TrackReferenceColumns::referenceNote(frame, id);
    return note.empty() ? reason : reason + "; " + note;
}
} // namespace

bool TrackCsvWriter::open(const std::string& file, bool tipColumns, bool referenceColumns) {
    m_tipColumns = tipColumns;
    m_referenceColumns = referenceColumns;
    if (!m_file.open(file))
        return false;
    m_pending.emplace(m_file, "rows");
    m_line.resize(4096);
    std::FILE* out = m_file.stream();
    if (std::fputs(Header, out) == EOF ||
        (tipColumns && std::fputs(TrackTipColumns::csvHeader(), out) == EOF) ||
        (referenceColumns && std::fputs(TrackReferenceColumns::csvHeader(tipColumns).c_str(), out) == EOF) ||
        std::fputs("\n", out) == EOF)
        return m_file.fail("cannot write", errno);
    return true;
}

bool TrackCsvWriter::write(std::uint64_t frameIndex, const TrackingStreamData& frame,
                           const DeviceFrameInfo* device) {
    if (!m_file.isOpen() || failed())
        return false;
    char deviceCounter[24] = "";
    char deviceTime[24] = "";
    if (device) {
        std::snprintf(deviceCounter, sizeof deviceCounter, "%u", device->frameCounter());
        std::snprintf(deviceTime, sizeof deviceTime, "%llu",
                      static_cast<unsigned long long>(device->deviceTimestampUS()));
    }
    const InstrumentStatusData* status = frame.component<InstrumentStatusData>();
    const std::uint64_t captureUS = frameTimeUS(frame);
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const Eigen::Matrix4d& m = instrument.matrix;
        const bool tracked = isInstrumentTracked(frame, instrument);
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
            m_line.data(), m_line.size(), "%llu,%s,%llu,%llu,%s,%llu,%s,%s,%d,%.4f,%s,%s,%s,%s",
            static_cast<unsigned long long>(frameIndex), deviceCounter,
            static_cast<unsigned long long>(frame.arrivalTimestamp()),
            static_cast<unsigned long long>(frame.deviceTimestamp()), deviceTime,
            static_cast<unsigned long long>(captureUS), csvField(instrument.ID()).c_str(),
            csvField(instrument.id.name).c_str(), tracked ? 1 : 0, instrument.quality, pose, error,
            entry ? InstrumentStatusData::stateName(entry->state) : "",
            entry ? csvField(reasonWithReference(entry->reason, frame, instrument.ID())).c_str() : "");
        if (m_tipColumns && length >= 0 && static_cast<std::size_t>(length) < m_line.size())
            length += TrackTipColumns::csvFields(m_line.data() + length,
                                                 m_line.size() - static_cast<std::size_t>(length), frame,
                                                 instrument.ID());
        if (m_referenceColumns && length >= 0 && static_cast<std::size_t>(length) < m_line.size())
            length += TrackReferenceColumns::csvFields(m_line.data() + length,
                                                       m_line.size() - static_cast<std::size_t>(length),
                                                       frame, instrument.ID(), m_tipColumns);
        if (length >= 0 && static_cast<std::size_t>(length) + 1 < m_line.size())
            m_line[static_cast<std::size_t>(length++)] = '\n';
        else
            length = static_cast<int>(m_line.size()); // too long, below
        if (length < 0 || static_cast<std::size_t>(length) >= m_line.size()) {
            errno = EOVERFLOW;
            return m_file.fail("row too long for instrument " + instrument.ID(), errno);
        }
        m_pending->append(m_line.data(), static_cast<std::size_t>(length), 1);
        ++m_rows;
    }
    return !failed();
}

bool TrackCsvWriter::flush() {
    return m_pending && m_pending->flush();
}

void TrackCsvWriter::discard() {
    m_file.discard(m_rows == 0); // unused: nothing pending to lose
}

bool TrackCsvWriter::close() {
    if (m_pending && !failed())
        m_pending->flush(); // a failure is kept as the file's error
    return m_file.complete();
}

} // namespace Kestrion::Cli
