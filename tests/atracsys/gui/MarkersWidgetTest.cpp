// The markers widget without a camera: its form, id allocation, making a marker from one frame's
// fiducials, the geometry file it writes, loading files and opening the user geometry folder.

#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/File.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/UrlOpenRecorder.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/LogCapture.h"

#include <Eigen/Geometry>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include <gtest/gtest.h>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;
using Points = std::vector<Eigen::Vector3d>;

namespace {

constexpr const char* Category = "AtracsysMarkersWidget";
const std::string MarkerFile = std::string(KESTRION_SOURCE_DIR) + "/data/markers/geometry1000.ini";
const std::string AmbiguousMessage =
    "Ambiguous fiducials detected. Ensure that no fiducial pair is aligned with camera.";

void touch(const std::string& folder, const std::string& name) {
    QFile file(QString::fromStdString(folder + "/" + name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
}

TrackingInstrumentFiducialsData fiducialsAt(const Points& points) {
    TrackingInstrumentFiducialsData data;
    for (const Eigen::Vector3d& point : points)
        data.addFiducial(point, 0, TrackingInstrumentFiducialsData::NoInstrument, 1.0, 0.1, 0.05, 30, 30);
    return data;
}

/// A six-fiducial marker, turned and moved into the camera's frame.
Points markerInCamera() {
    const Points marker = {{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}, {-20, 40, 5}, {45, 120, -3}};
    const Eigen::Matrix3d rotation =
        (Eigen::AngleAxisd(0.4, Eigen::Vector3d::UnitX()) * Eigen::AngleAxisd(-0.7, Eigen::Vector3d::UnitZ()))
            .toRotationMatrix();
    Points camera;
    for (const Eigen::Vector3d& p : marker)
        camera.push_back(rotation * p + Eigen::Vector3d(40, -25, 820));
    return camera;
}

/// Answers the file dialogs with a fixed path and keeps the requests.
struct DialogAnswers {
    explicit DialogAnswers(std::string answer)
        : hook([this, answer](const QtHelpers::FileDialogRequest& request) {
            requests.push_back(request);
            return answer;
        }) {}
    std::vector<QtHelpers::FileDialogRequest> requests;
    QtHelpers::ScopedFileDialogHook hook;
};

using TestSupport::FileSizeLimit;

class MarkersWidgetTest : public ::testing::Test {
protected:
    GuiTest::Application application;
    GuiTest::TemporaryHome home;
    AtracsysTrackingStream stream{"Atracsys Tracking Stream"};
    QTemporaryDir output;
};

} // namespace

TEST_F(MarkersWidgetTest, FormHoldsTheControlsInItsGrid) {
    AtracsysMarkersWidget widget(&stream, true);

    for (const auto& [name, text] :
         std::vector<std::pair<const char*, QString>>{{"label", "Integration time"},
                                                      {"nameEdit", "Marker Name"},
                                                      {"createButton", "Create"},
                                                      {"optimizeGeomButton", "Optimize Geometry"},
                                                      {"openSDKButton", "Open SDK Directory"},
                                                      {"loadButton", "Load from file..."}})
        EXPECT_EQ(widget.findChild<QWidget*>(name)->property("text").toString(), text) << name;
    EXPECT_FALSE(widget.findChild<QSpinBox*>("integrationTimeSpinbox")->isEnabled()) << "no open camera";
    EXPECT_TRUE(widget.findChild<QPushButton*>("optimizeGeomButton")->isVisibleTo(&widget));

    // "Create" needs a name, and starts disabled.
    auto* name = widget.findChild<QLineEdit*>("nameEdit");
    auto* create = widget.findChild<QPushButton*>("createButton");
    EXPECT_FALSE(create->isEnabled());
    name->setText("Pointer");
    EXPECT_TRUE(create->isEnabled());

    AtracsysMarkersWidget withoutOptimization(&stream, false);
    EXPECT_FALSE(
        withoutOptimization.findChild<QPushButton*>("optimizeGeomButton")->isVisibleTo(&withoutOptimization));
}

TEST_F(MarkersWidgetTest, NextIdSkipsGeometryFilesAndInstruments) {
    AtracsysMarkersWidget widget(&stream, true);
    EXPECT_EQ(AtracsysMarkersWidget::userGeometryFolder(),
              home.path() + "/.local/share/data/demo_x64Atracsys/PassiveTrackingSDK/");
    EXPECT_EQ(widget.nextAvailableId(), 1000u) << "no folder yet";

    const std::string folder = home.geometryFolder(false);
    auto idWith = [&](const std::vector<const char*>& files) {
        QDir(QString::fromStdString(folder)).removeRecursively();
        home.geometryFolder();
        for (const char* file : files)
            touch(folder, file);
        return widget.nextAvailableId();
    };
    EXPECT_EQ(idWith({"geometry1000.ini", "geometry1001.ini", "mygeometry1002.ini"}), 1002u);
    EXPECT_EQ(idWith({"geometry10001.ini"}), 1001u) << "a plain prefix test: 10001 takes 1000";
    // Instruments of the stream take their ids too.
    ASSERT_TRUE(stream.addGeometry("geometry1000.ini", MarkerFile));
    EXPECT_EQ(idWith({}), 1001u);
    EXPECT_EQ(idWith({"geometry1001_optimized.ini"}), 1002u);
}

TEST_F(MarkersWidgetTest, RefusesFramesThatDoNotShowOneClearMarker) {
    TestSupport::LogCapture capture;
    DialogAnswers dialogs(output.filePath("never.ini").toStdString());
    AtracsysMarkersWidget widget(&stream, true);

    widget.createMarker(nullptr);
    const TrackingInstrumentFiducialsData none;
    widget.createMarker(&none);
    EXPECT_EQ(capture->count(Log::Error, Category, "No fiducials in raw data."), 2u) << capture->dump();

    Points seven = markerInCamera();
    seven.push_back({0, 0, 900});
    const TrackingInstrumentFiducialsData sevenClean = fiducialsAt(seven);
    widget.createMarker(&sevenClean);
    EXPECT_EQ(capture->count(Log::Error, Category, AmbiguousMessage), 1u) << capture->dump();

    TrackingInstrumentFiducialsData oneDoubtful = fiducialsAt(markerInCamera());
    oneDoubtful.probabilities()[3] = 0.99;
    widget.createMarker(&oneDoubtful);
    EXPECT_EQ(capture->count(Log::Error, Category, AmbiguousMessage), 2u);

    // Two fiducials span no marker frame.
    const TrackingInstrumentFiducialsData two = fiducialsAt({{0, 0, 800}, {50, 0, 800}});
    widget.createMarker(&two);

    EXPECT_TRUE(capture->contains(Log::Info, Category, "Create new marker with 2 fiducials."));
    EXPECT_TRUE(
        capture->contains(Log::Error, Category,
                          "No marker made: the 2 fiducials do not define a marker frame (at least three "
                          "fiducials not in a line are needed)."))
        << capture->dump();

    QCoreApplication::processEvents();
    EXPECT_TRUE(widget.markerPoints().empty());
    EXPECT_TRUE(dialogs.requests.empty()) << "nothing to save";
}

TEST_F(MarkersWidgetTest, MakesAMarkerCentredOnItsFiducialsAndSavesIt) {
    TestSupport::LogCapture capture;
    UrlOpenRecorder urls;
    const std::string target = output.filePath("pointer.ini").toStdString();
    DialogAnswers dialogs(target);
    AtracsysMarkersWidget widget(&stream, true);
    widget.findChild<QLineEdit*>("nameEdit")->setText("Pointer");

    const Points camera = markerInCamera();
    const TrackingInstrumentFiducialsData six = fiducialsAt(camera);
    widget.createMarker(&six);
    EXPECT_TRUE(capture->contains(Log::Info, Category, "Create new marker with 6 fiducials."))
        << capture->dump();

    const Points points = widget.markerPoints();
    ASSERT_EQ(points.size(), 6u);
    Eigen::Vector3d centroid = Eigen::Vector3d::Zero();
    for (const Eigen::Vector3d& p : points)
        centroid += p;
    EXPECT_LT(centroid.norm(), 1e-9);
    // Same fiducials in the same order: every distance kept.
    for (std::size_t i = 0; i < 6; ++i)
        for (std::size_t j = i + 1; j < 6; ++j)
            EXPECT_NEAR((points[i] - points[j]).norm(), (camera[i] - camera[j]).norm(), 1e-9)
                << i << "," << j;
    // Along the principal axes: the spread is largest along x, smallest along z, uncorrelated.
    Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
    for (const Eigen::Vector3d& p : points)
        covariance += p * p.transpose();
    EXPECT_TRUE(covariance.isApprox(Eigen::Matrix3d(covariance.diagonal().asDiagonal()), 1e-9));
    EXPECT_TRUE(covariance(0, 0) > covariance(1, 1) && covariance(1, 1) > covariance(2, 2));

    // The save runs from the event loop, never inside the frame handler.
    EXPECT_TRUE(dialogs.requests.empty());
    QCoreApplication::processEvents();
    ASSERT_EQ(dialogs.requests.size(), 1u);
    EXPECT_EQ(dialogs.requests[0].caption, "Save marker geometry");
    EXPECT_EQ(QFileInfo(QString::fromStdString(dialogs.requests[0].startPath)).fileName(), "Pointer.ini");

    const auto text = Filesystem::File::readText(target);
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, AtracsysMarkersWidget::geometryText(points, 1000));
    EXPECT_TRUE(capture->contains(Log::Info, Category, "the marker geometry has been written to " + target));
    EXPECT_TRUE(capture->contains(Log::Info, Category,
                                  "before being used, it is recommend to run a geometry optimization"));
    EXPECT_TRUE(capture->contains(Log::Info, Category, "suggested name: Pointer.ini"));
    EXPECT_EQ(urls.urls(), QList<QUrl>{QUrl::fromLocalFile(output.path())});
}

TEST_F(MarkersWidgetTest, SavesAnOptimisedGeometryUnderItsTrackerIdAndKeepsTheOldFileWhenTheDiskIsFull) {
    EXPECT_EQ(AtracsysMarkersWidget::geometryText({{1.5, -2.0, 0.0}, {0.1234567, 1e-7, 1234567.0}}, 1002),
              "[fiducial0]\nx=1.5\ny=-2\nz=0\n"
              "[fiducial1]\nx=0.123457\ny=1e-07\nz=1.23457e+06\n"
              "[geometry]\ncount=2\nid=1002\n");
    TestSupport::LogCapture capture(Log::Info);
    AtracsysMarkersWidget widget(&stream, true);
    const TrackingInstrumentFiducialsData four =
        fiducialsAt({{0, 0, 800}, {31, 82, 800}, {96, -10, 805}, {61, 46, 790}});
    widget.createMarker(&four);
    {
        // A cancelled dialog writes nothing.
        DialogAnswers cancel("");
        QCoreApplication::processEvents();
        ASSERT_EQ(cancel.requests.size(), 1u);
        EXPECT_EQ(capture->countContaining("has been written"), 0u);
    }

    // The disk fills up while writing over an earlier file: it stays whole, no temporary file is left.
    const std::string target = output.filePath("refined").toStdString(); // the extension is added
    const std::string earlier = "[geometry]\ncount=3\nid=1077\n";
    ASSERT_TRUE(Filesystem::File::writeText(target + ".ini", earlier));
    {
        UrlOpenRecorder urls;
        DialogAnswers full(target);
        FileSizeLimit limit(16);
        ASSERT_TRUE(limit.applied);
        widget.saveGeometry(true, "atracsys-1042");
        EXPECT_TRUE(urls.urls().empty()) << "no folder is shown for a file that was not written";
    }
    EXPECT_EQ(Filesystem::File::readText(target + ".ini"), std::optional<std::string>(earlier));
    EXPECT_EQ(QDir(output.path()).entryList(QDir::Files), QStringList{"refined.ini"});
    EXPECT_EQ(capture->countContaining("Could not write file '" + target + ".ini': "), 1u) << capture->dump();

    DialogAnswers dialogs(target);
    widget.saveGeometry(true, "atracsys-1042");
    ASSERT_EQ(dialogs.requests.size(), 1u);
    EXPECT_EQ(QFileInfo(QString::fromStdString(dialogs.requests[0].startPath)).fileName(),
              "geometry1042_optimized.ini");
    const auto text = Filesystem::File::readText(target + ".ini");
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, AtracsysMarkersWidget::geometryText(widget.markerPoints(), 1042));
    EXPECT_TRUE(
        capture->contains(Log::Info, Category, "the marker geometry has been written to " + target + ".ini"));
    EXPECT_TRUE(capture->contains(Log::Info, Category, "suggested name: geometry1042_optimized.ini"));
    EXPECT_EQ(capture->countContaining("recommend"), 0u) << "only new markers need an optimisation";
}

TEST_F(MarkersWidgetTest, LoadsAChosenGeometryFileIntoTheStream) {
    AtracsysMarkersWidget widget(&stream, true);
    {
        DialogAnswers cancel("");
        widget.onLoad();
        ASSERT_EQ(cancel.requests.size(), 1u);
        EXPECT_EQ(cancel.requests[0].caption, "Select Geometry file");
        EXPECT_EQ(cancel.requests[0].filter, "Geometry files (*.ini)");
        EXPECT_EQ(stream.numInstruments(false), 0u);
    }
    DialogAnswers dialogs(MarkerFile);
    widget.onLoad();
    ASSERT_EQ(stream.numInstruments(false), 1u);
    EXPECT_EQ(stream.instruments()[0].ID(), "atracsys-1000");
    EXPECT_EQ(QtHelpers::lastOpenFolder("Tracker"),
              QFileInfo(QString::fromStdString(MarkerFile)).absolutePath().toStdString());

    // By id, from the output folder first, else the user geometry folder.
    TestSupport::LogCapture capture;
    ASSERT_TRUE(QFile::copy(
        QString::fromStdString(std::string(KESTRION_SOURCE_DIR) + "/data/markers/geometry1001.ini"),
        output.filePath("geometry1001.ini")));
    widget.setOutputFolder(std::make_unique<Filesystem::Directory>(output.path().toStdString()));
    widget.addToInstruments("atracsys-1001");
    EXPECT_EQ(stream.numInstruments(false), 2u);
    widget.addToInstruments("1005");
    EXPECT_EQ(stream.numInstruments(false), 2u);
    EXPECT_EQ(capture->countContaining("geometry1005.ini"), 1u) << capture->dump();
}

TEST_F(MarkersWidgetTest, OpensTheUserGeometryFolderOnlyWhenItExists) {
    UrlOpenRecorder urls;
    AtracsysMarkersWidget widget(&stream, true);
    widget.findChild<QPushButton*>("openSDKButton")->click();
    EXPECT_TRUE(urls.urls().isEmpty());
    home.geometryFolder();
    widget.findChild<QPushButton*>("openSDKButton")->click();
    EXPECT_EQ(urls.urls(), QList<QUrl>{QUrl::fromLocalFile(
                               QString::fromStdString(AtracsysMarkersWidget::userGeometryFolder()))});
}

TEST_F(MarkersWidgetTest, ANewMarkerThatALoadedGeometryDescribesIsNamedWhenSaved) {
    // The first four fiducials of the made marker are those of the example marker 1000.
    const std::string tool = output.filePath("tool.ini").toStdString();
    ASSERT_TRUE(Filesystem::File::writeText(
        Filesystem::Path(tool),
        AtracsysMarkersWidget::geometryText({{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}}, 1000)));
    ASSERT_TRUE(stream.addGeometry("tool", tool));
    TestSupport::LogCapture capture;
    const std::string target = output.filePath("pointer.ini").toStdString();
    DialogAnswers dialogs(target);
    AtracsysMarkersWidget widget(&stream, true);
    widget.findChild<QLineEdit*>("nameEdit")->setText("Pointer");
    const TrackingInstrumentFiducialsData six = fiducialsAt(markerInCamera());
    widget.createMarker(&six);
    EXPECT_EQ(capture->countContaining("could be confused"), 0u) << "only once saved, with its file";
    QCoreApplication::processEvents();
    ASSERT_EQ(capture->countContaining("could be confused"), 1u) << capture->dump();
    const std::string expected =
        target + " and tool (atracsys-1000) could be confused: fiducials 0, 1, 2 of " + target +
        " lie at the distances of fiducials 0, 1, 2 of tool (atracsys-1000) (at "
        "most 0.00 mm apart: ";
    EXPECT_EQ(capture->countContaining(expected), 1u) << capture->dump();
}
