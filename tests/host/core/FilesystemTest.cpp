#include "host/core/Directory.h"
#include "host/core/File.h"
#include "tests/support/LogCapture.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

using namespace Kestrion;
using namespace Kestrion::Filesystem;

namespace {

// Names in a folder, hidden ones included, to see leftover temporary files.
std::vector<std::string> allNames(const Path& folder) {
    std::vector<std::string> names;
    for (const Path& p : Directory(folder).files(".*"))
        names.push_back(p.fileName());
    for (const Path& p : Directory(folder).files("*"))
        names.push_back(p.fileName());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(Filesystem, PathsSplitJoinAndNormaliseLexically) {
    const Path file("/home/user/markers/geometry1000.ini");
    EXPECT_EQ(file.fileName(), "geometry1000.ini");
    EXPECT_EQ(file.baseName(), "geometry1000");
    EXPECT_EQ(file.extension(), "ini");
    EXPECT_EQ(file.parent(), Path("/home/user/markers"));
    EXPECT_EQ(Path(".bashrc").extension(), "");
    EXPECT_EQ(Path("a/b/").parent(), Path("a"));
    EXPECT_EQ(Path("a/").join("b.ini"), Path("a/b.ini"));
    EXPECT_EQ(Path("a") / "/abs", Path("/abs"));
    EXPECT_EQ(Path("/../x").normalized(), Path("/x"));
    EXPECT_EQ(Path("../../x/..").normalized(), Path("../.."));
}

TEST(Filesystem, DirectoriesAreCreatedWithParentsAndListedByPattern) {
    TestSupport::LogCapture capture;
    QTemporaryDir temporary;
    const Path root(temporary.path().toStdString());
    const Directory folder(root / "user/.local/share/geometries");
    EXPECT_FALSE(folder.exists());
    EXPECT_TRUE(folder.files("geometry*.ini").empty()) << "an absent folder lists nothing";
    EXPECT_EQ(capture->size(), 0u) << "an absent folder is no error: " << capture->dump();

    ASSERT_TRUE(folder.create());
    EXPECT_TRUE(folder.create()) << "creating an existing folder succeeds";

    for (const char* name : {"geometry1001.ini", "geometry1000.ini", "geometry.ini.bak", "Geometry7.ini",
                             "notes.txt", ".geometry5.ini", "geometry10001.ini"})
        ASSERT_TRUE(File::writeText(folder.filePath(name), "x"));
    ASSERT_TRUE(Directory(folder.filePath("geometry9.ini")).create()) << "a folder is not a file";

    EXPECT_EQ(folder.files("geometry*.ini"),
              (std::vector<Path>{folder.filePath("geometry1000.ini"), folder.filePath("geometry10001.ini"),
                                 folder.filePath("geometry1001.ini")}));
    EXPECT_EQ(folder.files("*").size(), 6u) << "hidden files need a pattern beginning with a dot";

    // A file in the way of a folder.
    const Directory blocked(folder.filePath("notes.txt/sub"));
    EXPECT_FALSE(blocked.create());
    EXPECT_EQ(capture->countContaining("Could not create folder '" + blocked.path().str() + "'"), 1u)
        << capture->dump();
}

TEST(Filesystem, TextIsWrittenWholeKeepingModeAndLinks) {
    QTemporaryDir temporary;
    const Path root(temporary.path().toStdString());
    const Path file = root / "marker.ini";
    const std::string text = std::string("[geometry]\ncount=4\n") + std::string(1 << 20, 'x') + '\0' + "end";
    ASSERT_TRUE(File::writeText(file, text));
    EXPECT_EQ(File::readText(file), std::optional<std::string>(text));

    ASSERT_EQ(::chmod(file.str().c_str(), 0640), 0);
    ASSERT_TRUE(File::writeText(file, "second"));
    struct stat info;
    ASSERT_EQ(::stat(file.str().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);

    const Path link = root / "link.ini";
    ASSERT_EQ(::symlink(file.str().c_str(), link.str().c_str()), 0);
    ASSERT_TRUE(File::writeText(link, "through the link"));
    EXPECT_EQ(File::readText(file), std::optional<std::string>("through the link"));
    EXPECT_EQ(allNames(root), (std::vector<std::string>{"link.ini", "marker.ini"}))
        << "the link stays a link and no temporary file is left";
    EXPECT_TRUE(File::remove(link));
    EXPECT_TRUE(File::remove(link)) << "an absent file counts as removed";
}

TEST(Filesystem, FailedWritesLeaveTheTargetUntouchedAndSayWhy) {
    TestSupport::LogCapture capture;
    QTemporaryDir temporary;
    const Path root(temporary.path().toStdString());

    // The rename fails: a folder sits where the file should go.
    const Path folderTarget = root / "occupied";
    ASSERT_TRUE(Directory(folderTarget).create());
    EXPECT_FALSE(File::writeText(folderTarget, "text"));
    EXPECT_TRUE(capture->contains(Log::Error, "Filesystem",
                                  "Could not write file '" + folderTarget.str() +
                                      "': cannot replace it: Is a directory"))
        << capture->dump();
    EXPECT_TRUE(allNames(root).empty()) << "the temporary file is removed";

    // The folder does not exist.
    EXPECT_FALSE(File::writeText(root / "missing/file.ini", "text"));
    EXPECT_TRUE(capture->contains(Log::Error, "Filesystem",
                                  "Could not write file '" + (root / "missing/file.ini").str() +
                                      "': cannot create a file in its folder: No such file or directory"));

    EXPECT_FALSE(File::readText(root / "absent.ini").has_value());
    EXPECT_TRUE(capture->contains(Log::Error, "Filesystem",
                                  "Could not read file '" + (root / "absent.ini").str() +
                                      "': No such file or directory"));
}
