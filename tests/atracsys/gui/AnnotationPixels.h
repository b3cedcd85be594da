#pragma once

// Checks of what a camera view actually paints: the annotations' cyan over the grey camera image.

#include <Eigen/Core>
#include <QImage>
#include <QTransform>

#include <array>

namespace Kestrion::GuiTest {

/// A pixel that only a cyan annotation paints: green and blue well above red (the camera
/// images are grey, the background dark grey).
bool isCyan(QRgb pixel);

/// True when some pixel within `radius` pixels of the image point (annotation coordinates,
/// mapped by `imageToPicture`) of `picture` is cyan.
bool cyanNear(const QImage& picture, const QTransform& imageToPicture, const Eigen::Vector2d& imagePoint,
              int radius = 1);

/// Points only the ellipse of a fiducial at `p` of size `s` covers (its rim at 45 degrees), and
/// only its cross covers (the far end of each arm, outside the ellipse).
std::array<Eigen::Vector2d, 4> ellipseRimPoints(const Eigen::Vector2d& p, const Eigen::Vector2d& s);
std::array<Eigen::Vector2d, 4> crossArmEnds(const Eigen::Vector2d& p, const Eigen::Vector2d& s);

} // namespace Kestrion::GuiTest
