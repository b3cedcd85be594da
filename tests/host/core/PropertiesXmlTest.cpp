#include "host/core/PropertiesXml.h"
#include "host/core/File.h"
#include "tests/support/LogCapture.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

Properties sampleTree() {
    Properties root("Workspace");
    root.setParam("fiducialQueryMode", 2);
    root.setParamAttribute("fiducialQueryMode", "hidden", "true");
    root.setParam("special", std::string("<tag attr=\"v\"> & 'quotes' \u00e9\u4e2d\u263a"));
    root.setParam("whitespace", std::string("  leading\ttab\nnew line\r\ncrlf trailing  "));
    root.setParam("empty", std::string());
    root.setParam("Distance matching tolerance", 1.5f);
    root.setParamAttribute("Distance matching tolerance", "description", "a < b & \"c\"\nnext");
    root.setParam("position", Eigen::Vector3d(1.0 / 3.0, -2, 1e-17));
    Properties* targets = root.addSubProperties("TrackingTargets");
    targets->setAttribute("hidden", "true");
    targets->addSubProperties("")->setParam("", std::string("nameless"));
    root.addSubProperties("Empty block");
    return root;
}

// Reads malformed text and returns the error (the read must fail).
PropertiesXml::Error readError(const std::string& xml) {
    PropertiesXml::Error error;
    const auto result = PropertiesXml::readString(xml, "bad.kws", &error);
    EXPECT_FALSE(result.has_value()) << xml;
    return error;
}

} // namespace

TEST(PropertiesXml, TreesRoundTripWithAttributesNestingSpecialCharactersAndEmptyValues) {
    const Properties original = sampleTree();
    const std::optional<std::string> xml = PropertiesXml::toString(original);
    ASSERT_TRUE(xml.has_value());
    const std::optional<Properties> back = PropertiesXml::readString(*xml);
    ASSERT_TRUE(back.has_value()) << *xml;
    EXPECT_EQ(*back, original) << *xml;

    // The text is the documented, readable format.
    EXPECT_NE(xml->find("<param name=\"fiducialQueryMode\" type=\"int\" hidden=\"true\">2</param>"),
              std::string::npos)
        << *xml;
    EXPECT_NE(xml->find("<properties name=\"TrackingTargets\" hidden=\"true\">"), std::string::npos) << *xml;

    // A hand-written file: missing type means string, empty elements are empty values.
    const auto hand = PropertiesXml::readString("<properties><param name='a'/><param name='b' type='int'> 7 "
                                                "</param><properties name='c'/></properties>");
    ASSERT_TRUE(hand.has_value());
    EXPECT_EQ(hand->paramType("a"), "string");
    EXPECT_EQ(hand->param("b", 0), 7);
    EXPECT_NE(hand->subProperty("c"), nullptr);
}

TEST(PropertiesXml, MalformedDocumentsGiveSourceLineAndReasonAndNoTree) {
    TestSupport::LogCapture capture;

    PropertiesXml::Error error = readError("<?xml version=\"1.0\"?>\n<properties name=\"w\">\n"
                                           "  <param name=\"a\" type=\"int\">1</param>\n"
                                           "  <param name=\"b\" type=\"int\">2</parm>\n</properties>\n");
    EXPECT_EQ(error.message(),
              "bad.kws:4:" + std::to_string(error.column) + ": Opening and ending tag mismatch.");
    EXPECT_TRUE(capture->contains(Log::Error, "Properties",
                                  "Could not read properties from 'bad.kws' (line 4, column " +
                                      std::to_string(error.column) + "): Opening and ending tag mismatch."))
        << capture->dump();

    std::string deep;
    for (int i = 0; i < 300; ++i)
        deep += "<properties>";
    struct Case {
        std::string xml;
        int line;           // 0: any
        std::string reason; // empty: any
    };
    const Case cases[] = {
        {"<properties>\n\n<param name=\"n\" type=\"int\">12abc</param>\n</properties>", 3,
         "value '12abc' of parameter 'n' is not a valid int"},
        {"<properties>\n<param name=\"n\">1</param>\n<param name=\"n\">2</param></properties>", 3,
         "parameter 'n' appears twice"},
        {"<properties>\n<param type=\"int\">1</param></properties>", 2,
         "a <param> element has no name attribute"},
        {"<properties>\n<properties name=\"x\">\n<value>1</value></properties></properties>", 3,
         "unexpected element <value>"},
        {"<settings/>", 0, "expected <properties> as the document element, found <settings>"},
        {"<properties name=\"a\">\n<param name=\"x\">1</param>\n", 0, "Premature end of document."},
        {"<properties xmlns:k=\"urn:x\" k:flag=\"1\"/>", 0, "unsupported attribute name 'k:flag'"},
        {deep, 0, "properties nested deeper than 256 levels"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xml.substr(0, 60));
        error = readError(c.xml);
        EXPECT_FALSE(error.reason.empty());
        EXPECT_TRUE(c.line == 0 || error.line == c.line) << error.line;
        EXPECT_TRUE(c.reason.empty() || error.reason == c.reason) << error.reason;
    }
}

TEST(PropertiesXml, FilesRememberTheirFolderForRelativePaths) {
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const Filesystem::Path base(folder.path().toStdString());
    const Filesystem::Path file = base.join("workspaces/session.kws");

    Properties workspace("Workspace");
    workspace.addSubProperties("TrackingTargets")
        ->addSubProperties("tool")
        ->setParam("Path", "../markers/tool.ini");
    ASSERT_EQ(::mkdir(base.join("workspaces").str().c_str(), 0755), 0);
    ASSERT_TRUE(PropertiesXml::writeFile(workspace, file));

    const std::optional<Properties> read = PropertiesXml::readFile(file);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(*read, workspace);
    const Properties* tool = read->subProperty("TrackingTargets")->subProperty("tool");
    ASSERT_NE(tool, nullptr);
    EXPECT_EQ(tool->absolutePath(tool->param("Path", std::string())), base.join("markers/tool.ini").str());

    EXPECT_FALSE(PropertiesXml::readFile(base.join("missing.kws")).has_value());
    EXPECT_TRUE(capture->contains(Log::Error, "Properties",
                                  "Could not read properties from '" + base.join("missing.kws").str() +
                                      "' (line 0, column 0): No such file or directory"))
        << capture->dump();
}

TEST(PropertiesXml, TextThatXmlCannotCarryIsRefusedBeforeTouchingTheFile) {
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    const Filesystem::Path file(folder.filePath("out.kws").toStdString());
    ASSERT_TRUE(Filesystem::File::writeText(file, "previous"));

    Properties p("root");
    p.setParam("bell", std::string("ring\x07"));
    EXPECT_FALSE(PropertiesXml::toString(p).has_value());
    EXPECT_TRUE(
        capture->contains(Log::Error, "Properties",
                          "Cannot write properties: the value of 'bell' holds the control character 7, "
                          "which XML cannot carry"))
        << capture->dump();
    EXPECT_FALSE(PropertiesXml::writeFile(p, file));
    EXPECT_EQ(Filesystem::File::readText(file), std::optional<std::string>("previous"));
}
