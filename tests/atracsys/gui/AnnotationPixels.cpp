#include "tests/atracsys/gui/AnnotationPixels.h"

#include <cmath>

namespace Kestrion::GuiTest {

bool isCyan(QRgb pixel) {
    return qGreen(pixel) - qRed(pixel) > 90 && qBlue(pixel) - qRed(pixel) > 90;
}

bool cyanNear(const QImage& picture, const QTransform& imageToPicture, const Eigen::Vector2d& imagePoint,
              int radius) {
    const QPointF at = imageToPicture.map(QPointF(imagePoint.x(), imagePoint.y()));
    const int cx = static_cast<int>(std::floor(at.x()));
    const int cy = static_cast<int>(std::floor(at.y()));
    for (int y = cy - radius; y <= cy + radius; ++y)
        for (int x = cx - radius; x <= cx + radius; ++x)
            if (picture.valid(x, y) && isCyan(picture.pixel(x, y)))
                return true;
    return false;
}

std::array<Eigen::Vector2d, 4> ellipseRimPoints(const Eigen::Vector2d& p, const Eigen::Vector2d& s) {
    const double c = std::sqrt(0.5) / 2.0;
    return {p + Eigen::Vector2d(c * s.x(), c * s.y()), p + Eigen::Vector2d(-c * s.x(), c * s.y()),
            p + Eigen::Vector2d(c * s.x(), -c * s.y()), p + Eigen::Vector2d(-c * s.x(), -c * s.y())};
}

std::array<Eigen::Vector2d, 4> crossArmEnds(const Eigen::Vector2d& p, const Eigen::Vector2d& s) {
    // Just inside the end of each arm (0.8 of the extent), past the ellipse (0.5).
    const double arm = 0.75;
    return {p + Eigen::Vector2d(arm * s.x(), 0), p - Eigen::Vector2d(arm * s.x(), 0),
            p + Eigen::Vector2d(0, arm * s.y()), p - Eigen::Vector2d(0, arm * s.y())};
}

} // namespace Kestrion::GuiTest
