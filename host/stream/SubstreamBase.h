#pragma once

namespace Kestrion {

class Stream;

/// What a stream group knows of each of its substreams: its place (index) in the group, the main
/// stream it belongs to, and the substream as a Stream.
class SubstreamBase {
public:
    SubstreamBase(Stream& mainStream, int index);
    virtual ~SubstreamBase();
    SubstreamBase(const SubstreamBase&) = delete;
    SubstreamBase& operator=(const SubstreamBase&) = delete;

    int substreamIndex() const { return m_index; }
    Stream& mainStream() const { return m_mainStream; }
    virtual Stream& stream() = 0;
    virtual const Stream& stream() const = 0;

private:
    Stream& m_mainStream;
    const int m_index;
};

} // namespace Kestrion
