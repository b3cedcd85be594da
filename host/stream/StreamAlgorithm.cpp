#include "host/stream/StreamAlgorithm.h"

namespace Kestrion {

StreamAlgorithm::~StreamAlgorithm() = default;

} // namespace Kestrion
