// The desktop host's tracking views on the simulated camera, drawn under Xvfb (OpenGL through
// Mesa): the 3D view paints every measured fiducial where its own projection puts it and the
// camera model's volume around them, and follows the mouse; the instrument table shows the
// marker tracked at the scene's pose with the stream's reason.

#include "atracsys/plugin/AtracsysWorkingVolumes.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/lib/trackingviews/WorkingVolumeView.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/WorkingVolume.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include <QDir>
#include <QImage>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

#include <mutex>

using namespace Kestrion;

namespace {

const std::string Marker = std::string(KESTRION_SOURCE_DIR) + "/data/markers/geometry1000.ini";
const QString Screenshots = QStringLiteral(KESTRION_BINARY_DIR "/screenshots/");

/// True when a pixel within `radius` of `at` has the colour (each channel within 40).
bool colourNear(const QImage& picture, const QPointF& at, const Eigen::Vector3f& colour, int radius) {
    for (int y = int(at.y()) - radius; y <= int(at.y()) + radius; ++y)
        for (int x = int(at.x()) - radius; x <= int(at.x()) + radius; ++x) {
            if (!picture.valid(x, y))
                continue;
            const QRgb p = picture.pixel(x, y);
            if (std::abs(qRed(p) - colour.x() * 255) < 40 && std::abs(qGreen(p) - colour.y() * 255) < 40 &&
                std::abs(qBlue(p) - colour.z() * 255) < 40)
                return true;
        }
    return false;
}

/// The measured fiducials of the newest frame, kept from the stream's worker thread.
struct MeasuredFiducials {
    std::mutex mutex;
    std::vector<Eigen::Vector3d> positions;
    void take(const std::shared_ptr<const StreamData>& data) {
        const auto* compound = dynamic_cast<const CompoundStreamData*>(data.get());
        const auto* frame =
            dynamic_cast<const TrackingStreamData*>(compound ? compound->mainData().get() : data.get());
        const auto* fiducials = frame ? frame->component<TrackingInstrumentFiducialsData>() : nullptr;
        if (fiducials && !fiducials->empty()) {
            std::lock_guard<std::mutex> lock(mutex);
            positions = fiducials->positions();
        }
    }
};

class TrackingViews : public ::testing::Test {
protected:
    void SetUp() override {
        GuiTest::ensureApplication();
        SpryTrack::registerAtracsysWorkingVolumes(); // the plugin's init() does it in the hosts
        m_stream.setFiducialQueryMode(AtracsysTrackingStreamBase::AllFiducials);
        ASSERT_TRUE(m_stream.open());
        ASSERT_TRUE(m_stream.addGeometry("pointer", Marker));
        m_connection = m_stream.signalStreamData.connect(
            [this](const std::shared_ptr<const StreamData>& data) { m_measured.take(data); });
        ASSERT_TRUE(m_stream.start());
        QDir().mkpath(Screenshots);
    }
    void TearDown() override {
        m_connection.disconnect();
        m_stream.close();
    }

    TrackingStreamTest::SceneGuard m_scene{GuiTest::dataFile("static-marker.json")};
    SpryTrack::AtracsysTrackingStream m_stream{"Atracsys Tracking Stream"};
    MeasuredFiducials m_measured;
    SignalConnection m_connection;
};

} // namespace

TEST_F(TrackingViews, TheVolumeViewDrawsMeasuredFiducialsInTheCameraModelsVolumeAndFollowsTheMouse) {
    WorkingVolumeView view;
    view.resize(900, 700);
    view.show();
    view.setStream(&m_stream);
    ASSERT_TRUE(GuiTest::processEventsUntil([&]() { return view.scene().instrumentsDrawn() == 1; }));
    const std::optional<WorkingVolume> volume = WorkingVolume::forDeviceType("sTk 180");
    ASSERT_TRUE(volume);
    ASSERT_TRUE(view.scene().volume());
    EXPECT_EQ(view.scene().volume()->farMM, volume->farMM);
    std::vector<Eigen::Vector3d> fiducials;
    {
        std::lock_guard<std::mutex> lock(m_measured.mutex);
        fiducials = m_measured.positions;
    }
    ASSERT_EQ(fiducials.size(), 4u);
    ASSERT_EQ(view.scene().points().size(), 4u) << "the marker's four fiducials";

    const auto problems = [&](const QImage& picture) {
        std::string found;
        for (const Eigen::Vector3d& fiducial : fiducials) {
            EXPECT_TRUE(volume->contains(fiducial));
            if (!colourNear(picture, view.project(fiducial), WorkingVolumeScene::MarkerColour, 3))
                found += "no marker fiducial at " + std::to_string(view.project(fiducial).x()) + "," +
                         std::to_string(view.project(fiducial).y()) + "; ";
        }
        const auto corners = volume->corners();
        for (int i = 4; i < 8; ++i) { // the middle of each edge of the far face
            const QPointF at = view.project((corners[i] + corners[4 + (i - 3) % 4]) / 2.0);
            if (QRectF(view.rect()).contains(at) &&
                !colourNear(picture, at, WorkingVolumeScene::VolumeColour, 2))
                found += "no volume edge at " + std::to_string(at.x()) + "," + std::to_string(at.y()) + "; ";
        }
        return found;
    };
    QImage picture = view.grabFramebuffer();
    picture.save(Screenshots + "working-volume-view.png");
    EXPECT_EQ(problems(picture), "");

    // Turning, zooming and panning move the view; the drawing follows its projection.
    const QPointF before = view.project(fiducials[0]);
    const double yaw = view.yawDegrees(), distance = view.distanceMM();
    QTest::mousePress(&view, Qt::LeftButton, Qt::NoModifier, QPoint(450, 350));
    QTest::mouseMove(&view, QPoint(520, 380));
    QMouseEvent drag(QEvent::MouseMove, QPointF(520, 380), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &drag);
    EXPECT_NE(view.yawDegrees(), yaw);
    QWheelEvent wheel(QPointF(450, 350), view.mapToGlobal(QPoint(450, 350)), QPoint(), QPoint(0, 240),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&view, &wheel);
    EXPECT_LT(view.distanceMM(), distance);
    QMouseEvent pan(QEvent::MouseMove, QPointF(500, 400), Qt::NoButton, Qt::RightButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &pan);
    EXPECT_NE(view.project(fiducials[0]), before);
    picture = view.grabFramebuffer();
    EXPECT_EQ(problems(picture), "");
}

TEST_F(TrackingViews, TheInstrumentTableShowsTheMarkerTrackedAtTheScenesPose) {
    InstrumentView view;
    view.resize(1000, 200);
    view.show();
    view.setStream(&m_stream);
    ASSERT_TRUE(GuiTest::processEventsUntil([&]() {
        return view.model()->rowCount() == 1 && view.model()->isTracked(0) &&
               !view.model()->data(view.model()->index(0, InstrumentTableModel::Reason)).toString().isEmpty();
    }));
    EXPECT_TRUE(m_stream.instrumentStatusRequested());
    const auto number = [&](int column) {
        return view.model()->data(view.model()->index(0, column)).toString().toDouble();
    };
    // The scene holds the marker at (30, -20, 800) mm.
    EXPECT_NEAR(number(InstrumentTableModel::X), 30.0, 0.5);
    EXPECT_NEAR(number(InstrumentTableModel::Y), -20.0, 0.5);
    EXPECT_NEAR(number(InstrumentTableModel::Z), 800.0, 0.5);
    EXPECT_EQ(view.model()->data(view.model()->index(0, InstrumentTableModel::Status)).toString(), "tracked");
    EXPECT_LT(number(InstrumentTableModel::RegistrationError), 0.5);

    // The row shows in the tracked colour.
    const QImage picture = view.grab().toImage();
    picture.save(Screenshots + "instrument-view.png");
    const QRect cell = view.table()->visualRect(view.model()->index(0, InstrumentTableModel::Name));
    const QPoint inside =
        view.table()->viewport()->mapTo(&view, cell.topLeft() + QPoint(2, cell.height() / 2));
    EXPECT_EQ(picture.pixelColor(inside * picture.devicePixelRatio()),
              view.model()->data(view.model()->index(0, 0), Qt::BackgroundRole).value<QBrush>().color());
    view.setStream(nullptr);
    EXPECT_FALSE(m_stream.instrumentStatusRequested());
}
