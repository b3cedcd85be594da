#include "host/lib/widgets/QtHelpers.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <vector>

using namespace Kestrion;
using QtHelpers::FileDialogRequest;

namespace {

class QtHelpersTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestSupport::guiApplication();
        ASSERT_TRUE(m_folder.isValid());
    }
    std::string folder() const { return m_folder.path().toStdString(); }

private:
    QTemporaryDir m_folder;
};

TEST_F(QtHelpersTest, DialogsProposeADefaultAndRememberTheFolderPerKey) {
    std::vector<FileDialogRequest> requests;
    std::string answer = folder() + "/marker1";
    QtHelpers::ScopedFileDialogHook hook([&](const FileDialogRequest& request) {
        requests.push_back(request);
        return answer;
    });
    const std::string type = "ini-" + std::to_string(QCoreApplication::applicationPid()); // fresh key

    EXPECT_EQ(QtHelpers::getSaveFilename("Save marker geometry", type, "newmarker"),
              folder() + "/marker1." + type);
    EXPECT_EQ(requests[0].kind, FileDialogRequest::Kind::Save);
    EXPECT_EQ(requests[0].filter, type + " files (*." + type + ");;All files (*)");
    EXPECT_EQ(requests[0].startPath,
              QDir::home().filePath(QString::fromStdString("newmarker." + type)).toStdString());

    // The next dialog starts where the last file went; a chosen extension is kept.
    answer = folder() + "/other.txt";
    EXPECT_EQ(QtHelpers::getSaveFilename("Save", type, "newmarker"), folder() + "/other.txt");
    EXPECT_EQ(requests[1].startPath, folder() + "/newmarker." + type);

    // Open dialogs remember their own folder; cancelling gives nothing and forgets nothing.
    answer = folder() + "/geometry1000.ini";
    EXPECT_EQ(QtHelpers::getOpenFilename("Select Geometry file", "Geometry files (*.ini)", type + "-open"),
              folder() + "/geometry1000.ini");
    EXPECT_EQ(requests[2].kind, FileDialogRequest::Kind::Open);
    EXPECT_EQ(requests[2].startPath, QDir::homePath().toStdString());
    answer.clear();
    EXPECT_EQ(QtHelpers::getOpenFilename("Select Geometry file", "Geometry files (*.ini)", type + "-open"),
              "");
    EXPECT_EQ(requests[3].startPath, folder());
    EXPECT_EQ(QtHelpers::getSaveFilename("Save", type, "newmarker"), "");
    EXPECT_EQ(QtHelpers::lastSaveFolder(type), folder());
}

} // namespace
