#include "host/apps/kestrion/TrackImageSaver.h"

#include "host/lib/widgets/ImageConversion.h"
#include "host/stream/CameraDetectionsData.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/TrackingStreamData.h"

#include <QDir>
#include <QImage>
#include <QImageWriter>
#include <QSaveFile>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Kestrion::Cli {

namespace {

/// Index of the mark colour in the palette of saved images; the grey levels use the others.
constexpr int MarkIndex = 255;

void setMark(QImage& image, int x, int y) {
    if (x >= 0 && y >= 0 && x < image.width() && y < image.height())
        image.scanLine(y)[x] = MarkIndex;
}

/// An ellipse of the detection's size (a little larger, so the blob stays visible) and a cross
/// through its centre.
void drawMark(QImage& image, const Eigen::Vector2d& centre, const Eigen::Vector2d& size) {
    const double rx = std::max(size.x(), 4.0) / 2.0 + 3.0;
    const double ry = std::max(size.y(), 4.0) / 2.0 + 3.0;
    const int steps = static_cast<int>(std::ceil(2.0 * 3.14159265358979 * std::max(rx, ry))) * 2;
    for (int i = 0; i < steps; ++i) {
        const double a = 2.0 * 3.14159265358979 * i / steps;
        setMark(image, static_cast<int>(std::lround(centre.x() + rx * std::cos(a))),
                static_cast<int>(std::lround(centre.y() + ry * std::sin(a))));
    }
    const int cx = static_cast<int>(std::lround(centre.x()));
    const int cy = static_cast<int>(std::lround(centre.y()));
    const int armX = static_cast<int>(rx) + 4;
    const int armY = static_cast<int>(ry) + 4;
    for (int d = -armX; d <= armX; ++d)
        setMark(image, cx + d, cy);
    for (int d = -armY; d <= armY; ++d)
        setMark(image, cx, cy + d);
}

/// The camera image as an 8-bit palette image (grey levels, with one colour for the marks), each
/// detection marked. A palette image is a third of the size of a colour one, which keeps PNG
/// encoding short. Images that are not 8-bit grey are saved as they are, without marks.
QImage annotated(const Image& image, const CameraDetectionsData::Camera* detections) {
    const QImage grey = toQImage(image);
    if (grey.isNull() || grey.format() != QImage::Format_Grayscale8)
        return grey;
    QImage picture(grey.width(), grey.height(), QImage::Format_Indexed8);
    QVector<QRgb> palette(256);
    for (int i = 0; i < MarkIndex; ++i)
        palette[i] = qRgb(i, i, i);
    palette[MarkIndex] = qRgb(255, 48, 24);
    picture.setColorTable(palette);
    for (int y = 0; y < grey.height(); ++y) {
        const uchar* from = grey.constScanLine(y);
        uchar* to = picture.scanLine(y);
        for (int x = 0; x < grey.width(); ++x)
            to[x] = std::min<uchar>(from[x], MarkIndex - 1);
    }
    if (detections)
        for (std::size_t i = 0; i < detections->centres.size(); ++i)
            drawMark(picture, detections->centres[i],
                     i < detections->sizes.size() ? detections->sizes[i] : Eigen::Vector2d(6.0, 6.0));
    return picture;
}

} // namespace

TrackImageSaver::TrackImageSaver(std::string folder, double intervalS)
    : m_folder(std::move(folder))
    , m_intervalMs(static_cast<std::uint64_t>(std::llround(intervalS * 1000.0))) {}

bool TrackImageSaver::offer(const CompoundStreamData& frame, std::uint64_t frameIndex) {
    if (failed())
        return false;
    if (m_pairs > 0 && frame.arrivalTimestamp() < m_lastSavedMs + m_intervalMs)
        return true;
    // The camera images by substream name, else in the order the stream sends them.
    const ImageStreamData* left = nullptr;
    const ImageStreamData* right = nullptr;
    std::vector<const ImageStreamData*> unnamed;
    for (const auto& sub : frame.subData()) {
        const auto* image = dynamic_cast<const ImageStreamData*>(sub.get());
        if (!image || !image->image() || !image->image()->image())
            continue;
        const std::string name = image->imageStream() ? image->imageStream()->name() : std::string();
        if (name == "Camera (left)")
            left = image;
        else if (name == "Camera (right)")
            right = image;
        else
            unnamed.push_back(image);
    }
    if (!left && !right && unnamed.size() == 2) {
        left = unnamed[0];
        right = unnamed[1];
    }
    if (!left || !right)
        return true; // a frame without images: wait for the next one

    const auto* tracking = dynamic_cast<const TrackingStreamData*>(frame.mainData().get());
    const CameraDetectionsData* detections = tracking ? tracking->component<CameraDetectionsData>() : nullptr;
    const DeviceFrameInfo* device = tracking ? tracking->component<DeviceFrameInfo>() : nullptr;
    const std::uint64_t number = device ? device->frameCounter() : frameIndex;

    const std::pair<const ImageStreamData*, const CameraDetectionsData::Camera*> cameras[] = {
        {left, detections ? &detections->left : nullptr}, {right, detections ? &detections->right : nullptr}};
    const char* const sides[] = {"left", "right"};
    for (int side = 0; side < 2; ++side) {
        const QString file = QDir(QString::fromStdString(m_folder))
                                 .filePath(QString("frame-%1-%2.png").arg(number).arg(sides[side]));
        const QImage picture = annotated(*cameras[side].first->image()->image(), cameras[side].second);
        // Written to a temporary file renamed when complete: a failed write leaves no partial image.
        QSaveFile output(file);
        QImageWriter writer(&output, "png");
        writer.setQuality(85); // light compression: camera noise compresses poorly anyway
        std::string reason;
        if (picture.isNull())
            reason = "the camera image is empty";
        else if (!output.open(QIODevice::WriteOnly))
            reason = output.errorString().toStdString();
        else if (!writer.write(picture))
            reason = writer.errorString().toStdString();
        else if (!output.commit())
            reason = output.errorString().toStdString();
        if (!reason.empty()) {
            m_error = "image " + file.toStdString() + ": " + reason;
            return false;
        }
    }
    ++m_pairs;
    m_lastSavedMs = frame.arrivalTimestamp();
    return true;
}

} // namespace Kestrion::Cli
