#include "recording/RecordingReader.h"

#include <cerrno>
#include <cstring>

namespace Kestrion::Recording {

RecordingReader::~RecordingReader() {
    if (m_file)
        std::fclose(m_file);
}

bool RecordingReader::fail(const std::string& message) {
    m_error = "recording " + m_path + ": " + message;
    return false;
}

bool RecordingReader::open(const std::string& path) {
    m_path = path;
    m_file = std::fopen(path.c_str(), "rb");
    if (!m_file)
        return fail(std::strerror(errno));
    std::uint8_t preamble[RecordCodec::PreambleSize];
    const std::size_t got = std::fread(preamble, 1, sizeof preamble, m_file);
    if (got < sizeof RecordCodec::Magic ||
        std::memcmp(preamble, RecordCodec::Magic, sizeof RecordCodec::Magic) != 0)
        return fail("not a recording (no recording signature at its start)");
    if (got < sizeof preamble)
        return fail("header: the file ends inside the preamble");
    std::uint16_t minimum = 0;
    std::memcpy(&m_version, preamble + 8, 2);
    std::memcpy(&minimum, preamble + 10, 2);
    if (minimum > ReaderVersion)
        return fail("written in format version " + std::to_string(m_version) +
                    ", which needs a reader of version " + std::to_string(minimum) +
                    " or newer; this program reads up to version " + std::to_string(ReaderVersion));
    m_position = sizeof preamble;
    std::uint8_t type = 0;
    const Read read = readRecord("header", type);
    if (read == Read::Failed)
        return false;
    if (read != Read::Record)
        return fail("header: the file ends inside the session header");
    if (type != RecordCodec::SessionRecord)
        return fail("header: the first record is not the session header");
    std::string problem;
    if (!RecordCodec::decodeSession(m_record.data(), m_record.size(), m_header, problem))
        return fail("header: " + problem);
    return true;
}

RecordingReader::Read RecordingReader::readRecord(const std::string& where, std::uint8_t& type) {
    std::uint8_t head[RecordCodec::RecordHeadSize];
    const std::size_t got = std::fread(head, 1, sizeof head, m_file);
    if (got == 0 && std::feof(m_file))
        return Read::Eof;
    if (got < sizeof head) {
        fail(where + ": incomplete, the file ends inside its record");
        return Read::Incomplete;
    }
    std::uint32_t length = 0;
    std::memcpy(&length, head, 4);
    type = head[4];
    if (length > RecordCodec::MaxPayload) {
        fail(where + ": damaged, its record claims " + std::to_string(length) + " bytes");
        return Read::Failed;
    }
    m_record.resize(length);
    std::uint32_t stored = 0;
    if (std::fread(m_record.data(), 1, length, m_file) != length || std::fread(&stored, 1, 4, m_file) != 4) {
        fail(where + ": incomplete, the file ends inside its record");
        return Read::Incomplete;
    }
    m_position += sizeof head + length + 4;
    if (stored != RecordCodec::checksum(type, m_record.data(), m_record.size())) {
        fail(where + ": damaged, its checksum does not match its content");
        return Read::Failed;
    }
    return Read::Record;
}

RecordingReader::Next RecordingReader::next(Frame& frame, bool images) {
    if (!m_file || m_ended || !m_error.empty())
        return m_error.empty() ? Next::End : Next::Failed;
    for (;;) {
        const std::string where = "frame " + std::to_string(m_frames);
        std::uint8_t type = 0;
        switch (readRecord(where, type)) {
        case Read::Eof:
            m_cutShort = true;
            m_ended = true;
            return Next::End;
        case Read::Incomplete:
            // A recording cut off while a frame was written: the whole frames before it stand.
            m_cutShort = true;
            m_ended = true;
            return Next::End;
        case Read::Failed:
            return Next::Failed;
        case Read::Record:
            break;
        }
        if (type == RecordCodec::EndRecord) {
            std::uint64_t frames = 0;
            if (!RecordCodec::decodeEnd(m_record.data(), m_record.size(), frames, m_dropped) ||
                frames != m_frames) {
                fail(where + ": damaged, the end record does not match the " + std::to_string(m_frames) +
                     " frames read");
                return Next::Failed;
            }
            m_ended = true;
            return Next::End;
        }
        std::string problem;
        if (type == RecordCodec::GeometryRecord) {
            AddedGeometry added{m_frames, {}};
            if (!RecordCodec::decodeGeometry(m_record.data(), m_record.size(), added.geometry, problem)) {
                fail(where + ": " + problem);
                return Next::Failed;
            }
            m_geometriesAdded.push_back(std::move(added));
            continue;
        }
        if (type == RecordCodec::GapRecord) {
            Gap gap{m_frames, 0, 0};
            if (!RecordCodec::decodeGap(m_record.data(), m_record.size(), gap, problem)) {
                fail(where + ": " + problem);
                return Next::Failed;
            }
            m_gaps.push_back(gap);
            continue;
        }
        if (type != RecordCodec::FrameRecord)
            continue; // a kind of record added by a later version: not needed to replay
        if (!m_codec.decodeFrame(m_record.data(), m_record.size(), frame, problem, images)) {
            fail(where + ": " + problem);
            return Next::Failed;
        }
        ++m_frames;
        return Next::Frame;
    }
}

bool RecordingReader::readFrameAt(std::uint64_t offset, std::uint64_t number, Frame& frame) {
    if (!m_file)
        return false;
    const std::string where = "frame " + std::to_string(number);
    if (::fseeko(m_file, static_cast<off_t>(offset), SEEK_SET) != 0)
        return fail(where + ": cannot seek: " + std::strerror(errno));
    m_position = offset;
    m_ended = false;
    // A position() seen before a frame may be that of a geometry or gap record placed before it
    // (or of a kind added later): those are passed over up to the frame.
    std::uint8_t type = 0;
    do {
        if (readRecord(where, type) != Read::Record)
            return false;
    } while (type != RecordCodec::FrameRecord && type != RecordCodec::EndRecord &&
             type != RecordCodec::SessionRecord);
    if (type != RecordCodec::FrameRecord)
        return fail(where + ": no frame record at offset " + std::to_string(offset));
    std::string problem;
    if (!m_codec.decodeFrame(m_record.data(), m_record.size(), frame, problem))
        return fail(where + ": " + problem);
    return true;
}

} // namespace Kestrion::Recording
