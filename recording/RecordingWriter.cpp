#include "recording/RecordingWriter.h"

#include <cerrno>

namespace Kestrion::Recording {

bool RecordingWriter::open(const std::string& file, const SessionHeader& header, bool replace) {
    if (!m_file.open(file, replace))
        return false;
    m_images = header.withImages;
    m_record.clear();
    RecordCodec::encodePreamble(m_record);
    RecordCodec::encodeSession(header, m_payload);
    RecordCodec::frameRecord(RecordCodec::SessionRecord, m_payload, m_record);
    if (std::fwrite(m_record.data(), 1, m_record.size(), m_file.stream()) != m_record.size())
        return m_file.fail("cannot write the header", errno);
    m_bytes = m_record.size();
    return flush();
}

bool RecordingWriter::put(RecordCodec::RecordType type) {
    m_record.clear();
    RecordCodec::frameRecord(type, m_payload, m_record);
    if (std::fwrite(m_record.data(), 1, m_record.size(), m_file.stream()) != m_record.size())
        return m_file.fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    m_bytes += m_record.size();
    return true;
}

bool RecordingWriter::write(const Frame& frame) {
    if (!m_file.isOpen() || m_file.failed())
        return false;
    m_codec.encodeFrame(frame, m_images, m_payload);
    if (!put(RecordCodec::FrameRecord))
        return false;
    ++m_frames;
    return true;
}

bool RecordingWriter::writeGeometry(const Geometry& geometry) {
    if (!m_file.isOpen() || m_file.failed())
        return false;
    RecordCodec::encodeGeometry(geometry, m_payload);
    return put(RecordCodec::GeometryRecord);
}

bool RecordingWriter::writeGap(const Gap& gap) {
    if (!m_file.isOpen() || m_file.failed())
        return false;
    RecordCodec::encodeGap(gap, m_payload);
    return put(RecordCodec::GapRecord);
}

bool RecordingWriter::flush() {
    if (!m_file.isOpen() || m_file.failed())
        return false;
    if (std::fflush(m_file.stream()) != 0)
        return m_file.fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    return true;
}

bool RecordingWriter::finish(std::uint64_t dropped) {
    if (!m_file.isOpen())
        return !m_file.failed();
    if (!m_file.failed()) {
        RecordCodec::encodeEnd(m_frames, dropped, m_payload);
        if (put(RecordCodec::EndRecord))
            flush();
    }
    return m_file.complete(); // a failure keeps the ".part" file
}

} // namespace Kestrion::Recording
