#include "host/stream/ImageStream.h"

namespace Kestrion {

ImageStream::~ImageStream() = default;

} // namespace Kestrion
