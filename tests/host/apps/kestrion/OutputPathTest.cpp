#include "host/apps/kestrion/OutputPath.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace Kestrion::Cli;
namespace fs = std::filesystem;

namespace {

class OutputPathTest : public ::testing::Test {
protected:
    QTemporaryDir m_temp;
    const std::string m_dir = m_temp.path().toStdString();

    std::string path(const std::string& name) const { return m_dir + "/" + name; }
    void write(const std::string& name, const std::string& text) const { std::ofstream(path(name)) << text; }
    std::string read(const std::string& name) const {
        std::ifstream in(path(name));
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::size_t entries() const {
        return static_cast<std::size_t>(std::distance(fs::recursive_directory_iterator(m_dir), {}));
    }
};

} // namespace

TEST_F(OutputPathTest, AFileOutputIsRefusedWhereItWouldReplaceOrCouldNotBeWritten) {
    write("earlier.csv", "earlier");
    write("killed.csv.part", "frame,device_counter\n0,1\n");
    fs::create_directory(path("odd.csv.part"));
    fs::create_directory(path("folder"));
    const std::size_t before = entries();
    struct Row {
        std::string file;
        bool replace;
        std::string error; // "" accepted
    };
    const Row rows[] = {
        {path("new.csv"), false, ""},
        {path("earlier.csv"), false,
         "CSV file " + path("earlier.csv") + ": exists; give --force to replace it"},
        {path("earlier.csv"), true, ""},
        {path("folder"), true, "CSV file " + path("folder") + ": is a folder; give a file name"},
        {path("missing/x.csv"), true,
         "CSV file " + path("missing/x.csv") + ": the folder " + path("missing") + " does not exist"},
        {path("earlier.csv/x.csv"), true,
         "CSV file " + path("earlier.csv/x.csv") + ": " + path("earlier.csv") + " is not a folder"},
        {"/dev/null", true, "CSV file /dev/null: exists and is not a regular file"},
        {"", true, "CSV file: no path given"},
        // The partial file of an earlier run is named, and replaced only when asked to.
        {path("killed.csv"), false,
         "CSV file " + path("killed.csv") + ": " + path("killed.csv.part") +
             " exists, left by an earlier run; give --force to replace it"},
        {path("killed.csv"), true, ""},
        {path("odd.csv"), true,
         "CSV file " + path("odd.csv") + ": " + path("odd.csv.part") + " exists and is not a regular file"},
    };
    for (const Row& row : rows) {
        OutputPath output("CSV file", row.file, OutputPath::Kind::File);
        EXPECT_EQ(output.check(row.replace), row.error.empty()) << row.file;
        EXPECT_EQ(output.error(), row.error);
    }
    EXPECT_EQ(entries(), before) << "a check touches nothing";
    OutputPath killed("CSV file", path("killed.csv"), OutputPath::Kind::File);
    ASSERT_TRUE(killed.check(true));
    ASSERT_TRUE(killed.removeEarlierPart()) << killed.error();
    EXPECT_FALSE(fs::exists(path("killed.csv.part")));
    EXPECT_TRUE(fs::exists(path("earlier.csv")));
    EXPECT_EQ(read("earlier.csv"), "earlier");
}

TEST_F(OutputPathTest, AFolderOutputRefusesEarlierRunsAndLeavesNothingBehindWhenUnused) {
    write("a-file", "x");
    fs::create_directory(path("images"));
    write("images/notes.txt", "unrelated files do not count");
    OutputPath images("image folder", path("images"), OutputPath::Kind::Folder);
    images.setEarlierOutputs({"frame-*-left.png", "frame-*-right.png"});
    EXPECT_TRUE(images.check(false)) << images.error();
    write("images/frame-12-right.png", "earlier image");
    write("images/frame-9-left.png", "earlier image");
    EXPECT_FALSE(images.check(false));
    EXPECT_EQ(images.error(),
              "image folder " + path("images") +
                  ": holds the output of an earlier run (frame-12-right.png); choose an empty "
                  "or new folder, or give --force to replace it");
    EXPECT_TRUE(images.check(true)) << images.error();

    for (const std::string& bad : {path("a-file"), path("a-file/images")}) {
        OutputPath output("image folder", bad, OutputPath::Kind::Folder);
        EXPECT_FALSE(output.check(true));
        EXPECT_EQ(output.error(), bad == path("a-file") ? "image folder " + bad + ": is a file, not a folder"
                                                        : "image folder " + bad + ": cannot be created: " +
                                                              path("a-file") + " is not a folder");
    }

    // Nested new folders are created, and removed again only while empty.
    OutputPath nested("image folder", path("run/1/images/"), OutputPath::Kind::Folder);
    ASSERT_TRUE(nested.check(false)) << nested.error();
    EXPECT_FALSE(fs::exists(path("run")));
    ASSERT_TRUE(nested.create()) << nested.error();
    EXPECT_TRUE(fs::is_directory(path("run/1/images")));
    nested.removeIfUnused();
    EXPECT_FALSE(fs::exists(path("run")));
    ASSERT_TRUE(nested.create());
    write("run/1/kept.txt", "a file of the user");
    nested.removeIfUnused();
    EXPECT_FALSE(fs::exists(path("run/1/images")));
    EXPECT_EQ(read("run/1/kept.txt"), "a file of the user");
}
