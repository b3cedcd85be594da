#include "recording/RecordingWriter.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Kestrion::Recording {

RecordingWriter::~RecordingWriter() {
    if (m_file)
        std::fclose(m_file);
}

bool RecordingWriter::fail(const std::string& what, int errorNumber) {
    if (m_error.empty())
        m_error = "recording " + m_target + ": " + what + ": " + std::strerror(errorNumber);
    return false;
}

bool RecordingWriter::open(const std::string& file, const SessionHeader& header, bool replace) {
    m_target = file;
    m_partialFile = file + ".part";
    if (!replace && ::access(file.c_str(), F_OK) == 0)
        return fail("cannot record over an existing file", EEXIST);
    // Exclusive creation: an existing file of that name is someone else's.
    m_file = std::fopen(m_partialFile.c_str(), "wbx");
    if (!m_file)
        return fail("cannot create " + m_partialFile, errno);
    m_buffer.resize(1 << 20);
    std::setvbuf(m_file, m_buffer.data(), _IOFBF, m_buffer.size());
    m_images = header.withImages;
    m_record.clear();
    RecordCodec::encodePreamble(m_record);
    RecordCodec::encodeSession(header, m_payload);
    RecordCodec::frameRecord(RecordCodec::SessionRecord, m_payload, m_record);
    if (std::fwrite(m_record.data(), 1, m_record.size(), m_file) != m_record.size())
        return fail("cannot write the header", errno);
    m_bytes = m_record.size();
    return flush();
}

bool RecordingWriter::put(RecordCodec::RecordType type) {
    m_record.clear();
    RecordCodec::frameRecord(type, m_payload, m_record);
    if (std::fwrite(m_record.data(), 1, m_record.size(), m_file) != m_record.size())
        return fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    m_bytes += m_record.size();
    return true;
}

bool RecordingWriter::write(const Frame& frame) {
    if (!m_file || !m_error.empty())
        return false;
    m_codec.encodeFrame(frame, m_images, m_payload);
    if (!put(RecordCodec::FrameRecord))
        return false;
    ++m_frames;
    return true;
}

bool RecordingWriter::writeGeometry(const Geometry& geometry) {
    if (!m_file || !m_error.empty())
        return false;
    RecordCodec::encodeGeometry(geometry, m_payload);
    return put(RecordCodec::GeometryRecord);
}

bool RecordingWriter::flush() {
    if (!m_file || !m_error.empty())
        return false;
    if (std::fflush(m_file) != 0)
        return fail("write failed after " + std::to_string(m_frames) + " frames", errno);
    return true;
}

bool RecordingWriter::finish(std::uint64_t dropped) {
    if (!m_file)
        return m_error.empty();
    bool ok = m_error.empty();
    if (ok) {
        RecordCodec::encodeEnd(m_frames, dropped, m_payload);
        ok = put(RecordCodec::EndRecord) && flush();
    }
    if (ok && ::fsync(::fileno(m_file)) != 0)
        ok = fail("cannot flush to disk", errno);
    if (std::fclose(m_file) != 0 && ok)
        ok = fail("cannot close", errno);
    m_file = nullptr;
    if (ok && std::rename(m_partialFile.c_str(), m_target.c_str()) != 0)
        ok = fail("cannot rename " + m_partialFile + " to it", errno);
    return ok;
}

} // namespace Kestrion::Recording
