#include "host/core/SharedImage.h"

#include <stdexcept>

namespace Kestrion {

SharedImage::SharedImage(std::shared_ptr<Image> image)
    : m_image(std::move(image)) {
    if (!m_image)
        throw std::invalid_argument("SharedImage: null image");
}

} // namespace Kestrion
