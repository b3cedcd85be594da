// Saving a marker geometry when the disk write fails: the chosen file keeps its old content whole,
// no temporary file is left, the failure names the file, no other file is touched.

#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/UrlOpenRecorder.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/hardening/ProcessRun.h"
#include "tests/support/LogCapture.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

using namespace Kestrion;
using namespace Kestrion::HardeningTest;

namespace {

/// Answers every file dialog with one path.
struct DialogAnswer {
    explicit DialogAnswer(std::string answer)
        : hook([this, answer](const QtHelpers::FileDialogRequest&) {
            ++asked;
            return answer;
        }) {}
    int asked = 0;
    QtHelpers::ScopedFileDialogHook hook;
};

/// Limits the size of files written, as a full disk would (EFBIG, no signal); holds for root too.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &m_previous);
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = m_previous;
        limit.rlim_cur = bytes;
        m_applied = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    bool applied() const { return m_applied; }

private:
    struct rlimit m_previous {};
    void (*m_handler)(int) = nullptr;
    bool m_applied = false;
};

} // namespace

TEST(GeometrySaving, AFailedWriteKeepsTheChosenFileWholeAndNamesIt) {
    GuiTest::Application application;
    GuiTest::TemporaryHome home;
    TestSupport::LogCapture capture(Log::Info);
    UrlOpenRecorder urls;
    TemporaryFolder folder;
    const std::string old = "[geometry]\ncount=3\nid=1077\n; the user's earlier marker\n";
    const std::string chosen = folder.write("marker.ini", old);
    const std::string neighbour = folder.write("geometry1000.ini", "the marker beside it\n");
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    AtracsysMarkersWidget widget(&stream, true);
    TrackingInstrumentFiducialsData four;
    for (const Eigen::Vector3d& point : {Eigen::Vector3d(0, 0, 800), Eigen::Vector3d(31, 82, 800),
                                         Eigen::Vector3d(96, -10, 805), Eigen::Vector3d(61, 46, 790)})
        four.addFiducial(point, 0, TrackingInstrumentFiducialsData::NoInstrument, 1.0, 0.1, 0.05, 30, 30);

    // The disk fills up while the new geometry is written over the chosen file.
    {
        DialogAnswer dialog(chosen);
        FileSizeLimit limit(16);
        ASSERT_TRUE(limit.applied());
        widget.createMarker(&four); // the save comes through the event loop
        QCoreApplication::processEvents();
        EXPECT_EQ(dialog.asked, 1);
    }
    EXPECT_EQ(readFile(chosen), old) << "the earlier content, whole";
    EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"geometry1000.ini", "marker.ini"}))
        << "no temporary file left";
    EXPECT_EQ(capture->countContaining("Could not write file '" + chosen + "': "), 1u) << capture->dump();
    EXPECT_TRUE(urls.urls().empty()) << "no folder is shown for a file that was not written";

    // With room on the disk the chosen file is replaced whole, and only that file.
    {
        DialogAnswer dialog(chosen);
        widget.saveGeometry(false, "");
    }
    EXPECT_EQ(readFile(chosen), AtracsysMarkersWidget::geometryText(widget.markerPoints(), 1000));
    EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"geometry1000.ini", "marker.ini"}));
    EXPECT_TRUE(capture->contains(Log::Info, "AtracsysMarkersWidget",
                                  "the marker geometry has been written to " + chosen));
}
