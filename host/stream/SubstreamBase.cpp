#include "host/stream/SubstreamBase.h"

namespace Kestrion {

SubstreamBase::SubstreamBase(Stream& mainStream, int index)
    : m_mainStream(mainStream)
    , m_index(index) {}

SubstreamBase::~SubstreamBase() = default;

} // namespace Kestrion
