#include "atracsys/device/IniFile.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

using Kestrion::SpryTrack::AtracsysHelpers::IniFile;

namespace {

using Sections = std::map<std::string, IniFile::Section>;

// Parses a copy of the text, NUL-terminated as the parser requires for an unterminated last line.
bool parseText(IniFile& ini, std::string text) {
    return ini.parse(text.data(), text.size());
}

} // namespace

TEST(IniFileParse, LinesSectionsKeysAndComments) {
    struct Row {
        std::string text;
        bool ok;
        Sections sections;
        std::string current;
    };
    const Sections geometry{{"geometry", {{"count", "4"}, {"id", "55"}}}, {"fiducial0", {{"x", "1.5"}}}};
    const Row rows[] = {
        // Line feeds end lines, carriage returns are dropped anywhere, a last line without
        // terminator is still read.
        {"[geometry]\ncount=4\nid=55\n[fiducial0]\nx=1.5\n", true, geometry, "fiducial0"},
        {"[geometry]\r\ncount=4\r\nid=55\r\n[fiducial0]\r\nx=1.5\r\n", true, geometry, "fiducial0"},
        {"[geometry]\ncount=4\nid=55\n[fiducial0]\nx=1.5", true, geometry, "fiducial0"},
        {"[geo\rmetry]\nco\runt=4\r\r\n", true, {{"geometry", {{"count", "4"}}}}, "geometry"},
        // A NUL ends the text after its partial line; what follows is ignored, even when malformed.
        {std::string("[a]\nk=v\0w\nbad\n", 14), true, {{"a", {{"k", "v"}}}}, "a"},
        {"", true, {}, ""},
        {"\n\n[s]\n\n\nk=v\n\n", true, {{"s", {{"k", "v"}}}}, "s"},
        // Parsing stops at the first malformed line, keeping what came before; "#" is no comment.
        {"k=v\n[s]\n", false, {}, ""},
        {"[s]\na=1\n# note\nb=2\n", false, {{"s", {{"a", "1"}}}}, "s"},
        {"[s]\na=1\nword", false, {{"s", {{"a", "1"}}}}, "s"},
        // A header's name runs from the first '[' to the last ']', and wins over a key line.
        {"[ spaced name ]\nk=v\n", true, {{" spaced name ", {{"k", "v"}}}}, " spaced name "},
        {"junk [a]b] junk\n", true, {{"a]b", {}}}, "a]b"},
        {"]x[abc\n", true, {{"abc", {}}}, "abc"},
        {"[s]\nname=a[1]\n", true, {{"s", {}}, {"1", {}}}, "1"},
        {"[a]\nx=1\n[b]\ny=2\n[a]\nz=3\n", true, {{"a", {{"x", "1"}, {"z", "3"}}}, {"b", {{"y", "2"}}}}, "a"},
        {"[]\nk=v\n", false, {{"", {}}}, ""},
        // Keys and values are untrimmed, the last value wins.
        {"[s]\nx = 1\n\tk=v \na=first\na=second\nempty=\n=novalue\nq=a=b\n",
         true,
         {{"s",
           {{"x ", " 1"}, {"\tk", "v "}, {"a", "second"}, {"empty", ""}, {"", "novalue"}, {"q", "a=b"}}}},
         "s"},
        // Comments are lines without '=' or lines before the first header.
        {"; leading\n   ; indented\n \t \n[s]\n;just a comment\n  \t\n; a=b\n",
         true,
         {{"s", {{"; a", "b"}}}},
         "s"},
        {"; a=b\n[s]\n", true, {{"s", {}}}, "s"},
    };
    IniFile ini; // one model for every row: each parse replaces the previous one
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(parseText(ini, row.text), row.ok);
        EXPECT_EQ(ini.sections, row.sections);
        EXPECT_EQ(ini.currentSection, row.current);
    }
}

TEST(IniFileWrite, BufferAndFileHoldTheSortedText) {
    // The text in a new buffer; its size counts the final NUL.
    const auto written = [](IniFile& ini) {
        char* raw = nullptr;
        std::size_t size = 0;
        EXPECT_TRUE(ini.toBuffer(&raw, size));
        std::unique_ptr<char[]> buffer(raw);
        return raw && size > 0 && raw[size - 1] == '\0' ? std::string(raw, size - 1) : "not terminated";
    };
    IniFile ini;
    ASSERT_TRUE(parseText(ini, "[geometry]\r\nid=7\r\ncount=1\r\n[fiducial0]\r\nz=3\r\nx=1\r\ny= 2\r\n"));
    EXPECT_EQ(written(ini), "[fiducial0]\nx=1\ny= 2\nz=3\n[geometry]\ncount=1\nid=7\n");
    IniFile longLine;
    longLine.sections["s"]["k"] = std::string(5000, 'v');
    EXPECT_EQ(written(longLine), "[s]\nk=" + std::string(5000, 'v') + "\n");
    IniFile empty;
    EXPECT_EQ(written(empty), "");
    std::size_t size = 99;
    EXPECT_FALSE(empty.toBuffer(nullptr, size));
    EXPECT_EQ(size, 99u);

    QTemporaryDir dir;
    const std::string path = dir.filePath("marker.ini").toStdString();
    const auto saved = [&path] {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    };
    ASSERT_TRUE(parseText(ini, "[b]\nk=2\n[a]\nk=1\nj=0\n[empty]\n"));
    ASSERT_TRUE(ini.save(path));
    EXPECT_EQ(saved(), "[a]\nj=0\nk=1\n[b]\nk=2\n[empty]\n");
    ini.sections.erase("b");
    ASSERT_TRUE(ini.save(path));
    EXPECT_EQ(saved(), "[a]\nj=0\nk=1\n[empty]\n") << "saving again replaces the file";
    EXPECT_FALSE(ini.save(dir.filePath("missing/folder/marker.ini").toStdString()));
}
