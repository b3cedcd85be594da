// `kestrion track` recordings when files are in the way or the disk fills up: a file the command
// did not create is never replaced, the named file keeps its content until a complete one replaces it.

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace Kestrion::HardeningTest;

namespace {

ProcessResult track(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                    const std::string& shellPrefix = "") {
    std::string command = shellPrefix + "exec '" + std::string(KESTRION_APP) + "' track";
    for (const auto& argument : arguments)
        command += " '" + argument + "'";
    return runProcess("/bin/sh", {"-c", command}, {{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER}},
                      folder.path());
}

} // namespace

TEST(TrackRecording, FailedRecordingsKeepEveryExistingFile) {
    TemporaryFolder folder;
    const std::string csv = folder.path("poses.csv");
    const std::string earlier = "frame,earlier recording\n0,kept\n";

    // Somebody's file has the name of the partial recording: it is not replaced.
    folder.write("poses.csv.part", "notes that happen to end in .part\n");
    ProcessResult r = track(folder, {"--csv", csv, "--frames", "5"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(
        r.errHas("kestrion track: CSV file " + csv + ": cannot create " + csv + ".part: File exists\n"))
        << r;
    EXPECT_EQ(readFile(csv + ".part"), "notes that happen to end in .part\n");
    std::filesystem::remove(csv + ".part");

    // The disk fills up during the recording (a file size limit, which holds for root too): the
    // earlier recording under that name stays whole, the rows written so far are in the ".part".
    folder.write("poses.csv", earlier);
    r = track(folder, {"--csv", csv, "--frames", "300"}, "trap '' XFSZ; ulimit -f 64; ");
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: CSV file " + csv + ": write failed after ")) << r;
    EXPECT_TRUE(r.errHas(": File too large; " + csv + ".part holds the rows written so far\n")) << r;
    EXPECT_EQ(readFile(csv), earlier);
    EXPECT_EQ(readFile(csv + ".part").rfind("frame,device_counter,", 0), 0u);

    // With room, a complete recording replaces the earlier one.
    std::filesystem::remove(csv + ".part");
    r = track(folder, {"--csv", csv, "--frames", "5"});
    EXPECT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("Recorded 10 rows to " + csv)) << r;
    EXPECT_EQ(readFile(csv).rfind("frame,device_counter,", 0), 0u);
    EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"poses.csv"}));
}

TEST(TrackRecording, CameraImagesNeverReplaceOrTruncateAFile) {
    TemporaryFolder folder;
    const std::string images = folder.path("images");

    // A folder with the images of an earlier run: refused before tracking, nothing replaced.
    folder.write("images/frame-12-left.png", "earlier image");
    ProcessResult r = track(folder, {"--images", images, "--frames", "5"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(
        r.errHas("kestrion track: image folder " + images +
                 ": holds images of an earlier run (frame-12-left.png); choose an empty or new folder\n"))
        << r;
    EXPECT_EQ(readFile(images + "/frame-12-left.png"), "earlier image");

    // The disk fills up while an image is written: the saving stops, no partial image is left.
    std::filesystem::remove_all(images);
    r = track(folder, {"--images", images, "--frames", "30"}, "trap '' XFSZ; ulimit -f 16; ");
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: image " + images + "/frame-")) << r;
    EXPECT_TRUE(r.errHas("; no more images are saved\n")) << r;
    EXPECT_TRUE(folderEntries(images).empty()) << "no truncated or temporary image";
}
