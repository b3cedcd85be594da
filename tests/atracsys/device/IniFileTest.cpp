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
bool parseText(IniFile& ini, const std::string& text) {
    std::string copy = text;
    return ini.parse(copy.data(), copy.size());
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

TEST(IniFileParse, LineFeedEndsALineCarriageReturnsAreDroppedNulEndsTheText) {
    const Sections expected{{"geometry", {{"count", "4"}, {"id", "55"}}}, {"fiducial0", {{"x", "1.5"}}}};
    // The last text has no final line feed: its last line is still read.
    for (const char* text : {"[geometry]\ncount=4\nid=55\n[fiducial0]\nx=1.5\n",
                             "[geometry]\r\ncount=4\r\nid=55\r\n[fiducial0]\r\nx=1.5\r\n",
                             "[geometry]\ncount=4\nid=55\n[fiducial0]\nx=1.5"}) {
        IniFile ini;
        EXPECT_TRUE(parseText(ini, text)) << text;
        EXPECT_EQ(ini.sections, expected) << text;
    }

    // Carriage returns are dropped anywhere in a line, not only before the line feed.
    IniFile inside;
    EXPECT_TRUE(parseText(inside, "[geo\rmetry]\nco\runt=4\r\r\n"));
    EXPECT_EQ(inside.sections, (Sections{{"geometry", {{"count", "4"}}}}));

    // A NUL in the middle of a line ends the text after that partial line; what follows is
    // ignored, even when malformed.
    std::string mid("[a]\nk=v\0w\nbad\n", 14);
    IniFile midNul;
    EXPECT_TRUE(midNul.parse(mid.data(), mid.size()));
    EXPECT_EQ(midNul.sections, (Sections{{"a", {{"k", "v"}}}}));

    // Empty buffer and empty lines.
    IniFile empty;
    char nothing[] = "";
    EXPECT_TRUE(empty.parse(nothing, 0));
    EXPECT_TRUE(empty.sections.empty());
    EXPECT_TRUE(parseText(empty, "\n\n[s]\n\n\nk=v\n\n"));
    EXPECT_EQ(empty.sections, (Sections{{"s", {{"k", "v"}}}}));
}

TEST(IniFileParse, ReplacesThePreviousModelAndStopsAtTheFirstMalformedLine) {
    IniFile ini;
    ASSERT_TRUE(parseText(ini, "[old]\nk=v\n"));

    // A key line before any header is malformed; the earlier model is gone all the same.
    EXPECT_FALSE(parseText(ini, "k=v\n[s]\n"));
    EXPECT_TRUE(ini.sections.empty());
    EXPECT_TRUE(ini.currentSection.empty());

    // "#" does not start a comment. What was read before the bad line stays.
    EXPECT_FALSE(parseText(ini, "[s]\na=1\n# note\nb=2\n"));
    EXPECT_EQ(ini.sections, (Sections{{"s", {{"a", "1"}}}}));

    // A bad last line without terminator also fails.
    EXPECT_FALSE(parseText(ini, "[s]\na=1\nword"));
    EXPECT_EQ(ini.sections, (Sections{{"s", {{"a", "1"}}}}));
}

TEST(IniFileParse, SectionHeadersKeepTheirTextAndWinOverKeyLines) {
    IniFile ini;
    EXPECT_TRUE(parseText(ini, "[ spaced name ]\nk=v\n"));
    EXPECT_EQ(ini.sections, (Sections{{" spaced name ", {{"k", "v"}}}}));

    // The name runs from the first '[' to the last ']'; text around the brackets is ignored.
    EXPECT_TRUE(parseText(ini, "junk [a]b] junk\n"));
    EXPECT_EQ(ini.currentSection, "a]b");
    // A ']' only before the '[': the name is the rest of the line.
    EXPECT_TRUE(parseText(ini, "]x[abc\n"));
    EXPECT_EQ(ini.currentSection, "abc");

    // A key line whose value holds both brackets is taken as a header.
    EXPECT_TRUE(parseText(ini, "[s]\nname=a[1]\n"));
    EXPECT_EQ(ini.sections, (Sections{{"s", {}}, {"1", {}}}));
    EXPECT_EQ(ini.currentSection, "1");

    // Returning to a section adds to it; an empty header name leaves no current section.
    EXPECT_TRUE(parseText(ini, "[a]\nx=1\n[b]\ny=2\n[a]\nz=3\n"));
    EXPECT_EQ(ini.sections, (Sections{{"a", {{"x", "1"}, {"z", "3"}}}, {"b", {{"y", "2"}}}}));
    EXPECT_FALSE(parseText(ini, "[]\nk=v\n"));
    EXPECT_EQ(ini.sections, (Sections{{"", {}}}));
}

TEST(IniFileParse, KeysAndValuesAreUntrimmedTheLastValueWinsAndCommentsAreLinesOutsideSections) {
    IniFile ini;
    EXPECT_TRUE(parseText(ini, "[s]\nx = 1\n\tk=v \na=first\na=second\nempty=\n=novalue\nq=a=b\n"));
    const IniFile::Section expected{{"x ", " 1"},  {"\tk", "v "},   {"a", "second"},
                                    {"empty", ""}, {"", "novalue"}, {"q", "a=b"}};
    EXPECT_EQ(ini.sections.at("s"), expected);

    // Comments and blank lines are recognised only outside key lines.
    EXPECT_TRUE(parseText(ini, "; leading comment\n   ; indented comment\n \t \n[s]\n;just a comment\n"
                               "  \t\n; a=b\n"));
    // The comment-looking line inside a section holds '=' and so defines a key.
    EXPECT_EQ(ini.sections, (Sections{{"s", {{"; a", "b"}}}}));

    // Before the first header the same line is a comment.
    EXPECT_TRUE(parseText(ini, "; a=b\n[s]\n"));
    EXPECT_EQ(ini.sections, (Sections{{"s", {}}}));
}

TEST(IniFileWrite, ToBufferWritesTheSortedTextWithAFinalNul) {
    // The text in a new buffer; its size counts the final NUL.
    const auto written = [](IniFile& ini, std::size_t expectedSize) {
        char* raw = nullptr;
        std::size_t size = 0;
        EXPECT_TRUE(ini.toBuffer(&raw, size));
        std::unique_ptr<char[]> buffer(raw);
        EXPECT_EQ(size, expectedSize);
        return raw && raw[size - 1] == '\0' ? std::string(raw, size - 1) : std::string("not terminated");
    };
    IniFile ini;
    ASSERT_TRUE(parseText(ini, "[geometry]\r\nid=7\r\ncount=1\r\n[fiducial0]\r\nz=3\r\nx=1\r\ny= 2\r\n"));
    const std::string expected = "[fiducial0]\nx=1\ny= 2\nz=3\n[geometry]\ncount=1\nid=7\n";
    EXPECT_EQ(written(ini, expected.size() + 1), expected);

    // Long lines are written whole; an empty model is a lone NUL.
    IniFile longLine;
    longLine.sections["s"]["k"] = std::string(5000, 'v');
    EXPECT_EQ(written(longLine, 5000u + 8u), "[s]\nk=" + std::string(5000, 'v') + "\n");
    IniFile empty;
    EXPECT_EQ(written(empty, 1u), "");
    // Without an output pointer nothing is written.
    std::size_t size = 99;
    EXPECT_FALSE(empty.toBuffer(nullptr, size));
    EXPECT_EQ(size, 99u);
}

TEST(IniFileWrite, SaveWritesTheSortedTextAndFailsOnAnUnopenablePath) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const std::string path = dir.filePath("marker.ini").toStdString();

    IniFile ini;
    ASSERT_TRUE(parseText(ini, "[b]\nk=2\n[a]\nk=1\nj=0\n[empty]\n"));
    ASSERT_TRUE(ini.save(path));
    EXPECT_EQ(readFile(path), "[a]\nj=0\nk=1\n[b]\nk=2\n[empty]\n");

    // Saving again replaces the file.
    ini.sections.erase("b");
    ASSERT_TRUE(ini.save(path));
    EXPECT_EQ(readFile(path), "[a]\nj=0\nk=1\n[empty]\n");
    EXPECT_FALSE(ini.save(dir.filePath("missing/folder/marker.ini").toStdString()));
}
