#include "host/apps/kestrion/TrackSequenceWriter.h"

#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace Kestrion::Cli {

namespace {
/// Digits of the frame count in the header, written when the count is known.
constexpr int CountDigits = 10;

/// The name with every "To" that the importer would take for the split of "<From>To<To>" (a "To"
/// followed by a character that upper-casing leaves alone) written "TO", so that the only such
/// "To" of the field is the one before "Tracker".
std::string withoutSplit(std::string name) {
    for (std::size_t at = name.find("To"); at != std::string::npos; at = name.find("To", at + 1))
        if (at + 2 >= name.size() || std::toupper(static_cast<unsigned char>(name[at + 2])) ==
                                         static_cast<unsigned char>(name[at + 2]))
            name[at + 1] = 'O';
    return name;
}
} // namespace

const std::string& TrackSequenceWriter::transformName(const TrackingStreamData& frame,
                                                      const std::string& instrumentId) {
    const auto known = m_names.find(instrumentId);
    if (known != m_names.end())
        return known->second;
    const auto* names = frame.component<InstrumentNames>();
    const std::string wanted =
        withoutSplit(names ? names->transformName(instrumentId) : InstrumentNames::safeName(instrumentId));
    std::string name = wanted;
    for (int n = 2; m_usedNames.count(name) != 0; ++n)
        name = wanted + std::to_string(n);
    m_usedNames.insert(name);
    return m_names.emplace(instrumentId, name).first->second;
}

bool TrackSequenceWriter::open(const std::string& file) {
    if (!m_file.open(file))
        return false;
    m_pending.emplace(m_file, "frames");
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

bool TrackSequenceWriter::write(std::uint64_t frameIndex, const TrackingStreamData& frame) {
    if (!m_file.isOpen() || failed())
        return false;
    // Seconds since the first frame, on the frames' capture times.
    const std::uint64_t timeUS = frameTimeUS(frame);
    if (!m_hasOrigin) {
        m_hasOrigin = true;
        m_originUS = timeUS;
    }
    const double seconds =
        timeUS >= m_originUS ? double(timeUS - m_originUS) / 1e6 : -double(m_originUS - timeUS) / 1e6;
    char prefix[40];
    std::snprintf(prefix, sizeof prefix, "Seq_Frame%04llu_", static_cast<unsigned long long>(m_frames));
    appendLine("%sFrameNumber = %llu\n%sTimestamp = %.6f\n", prefix,
               static_cast<unsigned long long>(frameIndex), prefix, seconds);
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const Eigen::Matrix4d& m = instrument.matrix;
        const std::string& name = transformName(frame, instrument.ID());
        appendLine(
            "%s%sToTrackerTransform = %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g 0 0 0 "
            "1\n%s%sToTrackerTransformStatus = %s\n",
            prefix, name.c_str(), m(0, 0), m(0, 1), m(0, 2), m(0, 3), m(1, 0), m(1, 1), m(1, 2), m(1, 3),
            m(2, 0), m(2, 1), m(2, 2), m(2, 3), prefix, name.c_str(),
            isInstrumentTracked(frame, instrument) ? "OK" : "INVALID");
    }
    // With a reference: every other instrument in the reference's frame, valid or not.
    if (const auto* poses = frame.component<ReferencePoseData>()) {
        const std::string reference = transformName(frame, poses->referenceId());
        for (const TrackingInstrument& instrument : frame.instruments()) {
            if (instrument.ID() == poses->referenceId())
                continue;
            const ReferencePoseData::Entry* entry = poses->find(instrument.ID());
            const Eigen::Matrix4d m = entry ? entry->poseInReference : Eigen::Matrix4d::Identity();
            const std::string& name = transformName(frame, instrument.ID());
            appendLine(
                "%s%sTo%sTransform = %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g %.9g 0 0 0 "
                "1\n%s%sTo%sTransformStatus = %s\n",
                prefix, name.c_str(), reference.c_str(), m(0, 0), m(0, 1), m(0, 2), m(0, 3), m(1, 0), m(1, 1),
                m(1, 2), m(1, 3), m(2, 0), m(2, 1), m(2, 2), m(2, 3), prefix, name.c_str(), reference.c_str(),
                entry ? "OK" : "INVALID");
        }
    }
    appendLine("%sImageStatus = INVALID\n", prefix);
    m_pending->append(m_frameText.data(), m_frameText.size(), 1);
    m_frameText.clear();
    ++m_frames;
    return !failed();
}

template <typename... Args>
void TrackSequenceWriter::appendLine(const char* format, Args... args) {
    const int length = std::snprintf(m_line.data(), m_line.size(), format, args...);
    if (length >= 0 && static_cast<std::size_t>(length) >= m_line.size()) {
        m_line.resize(static_cast<std::size_t>(length) + 1);
        std::snprintf(m_line.data(), m_line.size(), format, args...);
    }
    if (length > 0)
        m_frameText.append(m_line.data(), static_cast<std::size_t>(length));
}

bool TrackSequenceWriter::flush() {
    return m_pending && m_pending->flush();
}

void TrackSequenceWriter::discard() {
    m_file.discard(m_frames == 0);
}

bool TrackSequenceWriter::close() {
    std::FILE* out = m_file.stream();
    if (out && !failed()) {
        const char* const end = "ElementDataFile = LOCAL\n";
        m_pending->append(end, std::strlen(end), 0);
        // The header's frame count, left blank at open, is known now (the seek resets the
        // stream's position after the rows were written past it).
        // A failed flush is kept as the file's error.
        if (m_pending->flush() &&
            (std::fseek(out, m_countAt, SEEK_SET) != 0 ||
             std::fprintf(out, "%0*llu", CountDigits, static_cast<unsigned long long>(m_frames)) < 0 ||
             std::fflush(out) != 0))
            m_file.fail("cannot write the frame count", errno);
    }
    return m_file.complete();
}

} // namespace Kestrion::Cli
