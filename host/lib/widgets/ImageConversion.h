#pragma once

#include <QImage>

namespace Kestrion {

class Image;

/// The first slice of a host image as a QImage (a deep copy, independent of the image):
/// - 8-bit images with 1, 3 or 4 channels: grey (QImage::Format_Grayscale8), RGB, RGBA, as is;
/// - 16-bit unsigned grey: QImage::Format_Grayscale16, as is;
/// - every other type or channel count: the first channel, scaled from its minimum and maximum
///   to 8-bit grey.
/// An image without pixels gives a null QImage.
QImage toQImage(const Image& image);

} // namespace Kestrion
