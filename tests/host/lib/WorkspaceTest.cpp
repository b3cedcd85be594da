#include "host/lib/Workspace.h"
#include "host/core/File.h"
#include "host/core/Parameter.h"
#include "host/core/PropertiesXml.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/WorkspaceConversionRegistry.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

using namespace Kestrion;

namespace {

class Settings : public Algorithm {
public:
    void compute() override { ++computed; }
    Parameter<double> gain{"gain", 1.0, this};
    Parameter<bool> enabled{"enabled", true, this};
    int computed = 0;
};

class Failing : public Algorithm {
public:
    void compute() override { setStatus(Error); }
};

class Throwing : public Algorithm {
public:
    void compute() override { throw std::runtime_error("boom"); }
};

class WorkspaceFactory : public AlgorithmFactory {
public:
    WorkspaceFactory()
        : AlgorithmFactory("Test", true) {
        registerAlgorithm<Settings>("Settings", "Test;Settings");
        registerAlgorithm<Failing>("Failing", "Test;Failing");
        registerAlgorithm<Throwing>("Throwing", "Test;Throwing");
    }
};

/// A fresh folder per test, removed afterwards.
class WorkspaceTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestrion-workspace-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
        m_registry.addAlgorithmFactory(std::make_unique<WorkspaceFactory>(), "");
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string write(const std::string& name, const std::string& text) {
        const std::string file = m_dir + "/" + name;
        EXPECT_TRUE(Filesystem::File::writeText(file, text));
        return file;
    }
    static std::string workspace(const std::string& algorithms, const std::string& more = "") {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<properties name=\"Workspace\">\n" + more +
               "<properties name=\"Algorithms\">\n" + algorithms + "</properties>\n</properties>\n";
    }

    std::string m_dir;
    FactoryRegistry m_registry;
};

Properties algorithmsBlock(const std::vector<std::string>& names) {
    Properties workspace("Workspace");
    Properties* algorithms = workspace.addSubProperties("Algorithms");
    for (const auto& name : names)
        algorithms->addSubProperties(name)->setParam("keep", name);
    return workspace;
}

std::vector<std::string> childNames(const Properties& workspace) {
    std::vector<std::string> names;
    for (const Properties* block : workspace.subProperty("Algorithms")->subProperties())
        names.push_back(block->name());
    return names;
}

WorkspaceConversion rename(const std::string& description, int order, const std::string& from,
                           const std::string& to) {
    return {description, order, [from, to](Properties& workspace, const Filesystem::Path&) {
                Properties* algorithms = workspace.subProperty("Algorithms");
                if (!algorithms)
                    return false;
                bool changed = false;
                for (Properties* block : algorithms->subProperties())
                    if (block->name() == from) {
                        block->setName(to);
                        changed = true;
                    }
                return changed;
            }};
}

} // namespace

TEST(WorkspaceConversionRegistry, ConversionsRunInOrderRenameInPlaceAndReportChanges) {
    TestSupport::LogCapture capture;
    WorkspaceConversionRegistry registry;
    registry.addConversion(rename("B to C", 34, "Old.B", "New.C"));
    registry.addConversion(rename("A to B", 5, "Old.A", "Old.B"));
    registry.addConversion({"no function", 1, nullptr});
    EXPECT_TRUE(capture->contains(Log::Warning, "WorkspaceConversionRegistry",
                                  "Workspace conversion \"no function\" has no function and is not added"));
    ASSERT_EQ(registry.size(), 2u);

    Properties workspace = algorithmsBlock({"X", "Old.A", "Old.Ax", "old.a", "Old.A"});
    auto applied = registry.convert(workspace, "/data/case.kws");
    ASSERT_TRUE(applied.has_value());
    // A becomes B, which the later conversion turns into C; names are compared exactly and
    // each block keeps its place and content.
    EXPECT_EQ(*applied, (std::vector<std::string>{"A to B", "B to C"}));
    EXPECT_EQ(childNames(workspace), (std::vector<std::string>{"X", "New.C", "Old.Ax", "old.a", "New.C"}));
    EXPECT_EQ(workspace.subProperty("Algorithms")->subProperties()[1]->param<std::string>("keep", ""),
              "Old.A");
    EXPECT_TRUE(capture->contains(Log::Info, "Workspace", "Workspace /data/case.kws: A to B"));
    EXPECT_EQ(registry.convert(workspace, "/data/case.kws"), std::vector<std::string>{});
}

TEST_F(WorkspaceTest, ARoundTripKeepsConfigurationsUnknownAlgorithmsAndOtherBlocks) {
    TestSupport::LogCapture capture;
    const std::string unknown =
        "<properties name=\"Vendor.Unknown\" note=\"x\">\n"
        "<param name=\"x\" type=\"int\">1</param>\n"
        "<properties name=\"Sub\"><param name=\"y\" type=\"string\">deep</param></properties>\n"
        "</properties>\n";
    const std::string file =
        write("first.kws",
              workspace("<properties name=\"Test.Settings\"><param name=\"gain\" type=\"double\">2.5</param>"
                        "</properties>\n"
                        "<properties name=\"Test.Settings\"><param name=\"enabled\" "
                        "type=\"bool\">false</param></properties>\n" +
                            unknown,
                        "<param name=\"title\" type=\"string\">OR 3</param>\n"));

    Workspace loaded;
    const auto report = loaded.load(file, m_registry);
    EXPECT_EQ(report.created, 2u);
    EXPECT_EQ(report.computed, 2u);
    EXPECT_EQ(report.errors,
              std::vector<std::string>{"Workspace " + file + ": unknown algorithm \"Vendor.Unknown\""});
    EXPECT_TRUE(capture->contains(Log::Error, "Workspace", report.errors.front()));
    ASSERT_EQ(loaded.algorithms().size(), 3u);
    auto* first = dynamic_cast<Settings*>(loaded.algorithms()[0].algorithm.get());
    auto* second = dynamic_cast<Settings*>(loaded.algorithms()[1].algorithm.get());
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->gain.value(), 2.5);
    EXPECT_FALSE(second->enabled.value());
    EXPECT_EQ(first->computed, 1);

    // A host that computes elsewhere gets them created and configured only.
    Workspace configuredOnly;
    EXPECT_EQ(configuredOnly.load(file, m_registry, false).computed, 0u);
    auto* configured = dynamic_cast<Settings*>(configuredOnly.algorithms()[0].algorithm.get());
    ASSERT_TRUE(configured);
    EXPECT_EQ(configured->gain.value(), 2.5);
    EXPECT_TRUE(
        capture->contains(Log::Info, "Workspace", "Workspace " + file + ": 2 of 3 algorithms created"));

    const std::string copy = m_dir + "/copy.kws";
    ASSERT_TRUE(loaded.save(copy));
    Workspace reloaded;
    reloaded.load(copy, m_registry);
    EXPECT_EQ(reloaded.toProperties(), loaded.toProperties());

    // Blocks the host cannot create, and other blocks, are written back as they were read.
    const auto original = PropertiesXml::readFile(file);
    const auto saved = PropertiesXml::readFile(copy);
    ASSERT_TRUE(original && saved);
    EXPECT_EQ(saved->param<std::string>("title", ""), "OR 3");
    EXPECT_EQ(*saved->subProperty("Algorithms")->subProperties()[2],
              *original->subProperty("Algorithms")->subProperties()[2]);
}

TEST_F(WorkspaceTest, UnreadableWorkspacesAndFailingAlgorithmsAreReportedWithTheFile) {
    TestSupport::LogCapture capture;
    auto load = [this](const std::string& file) { return Workspace().load(file, m_registry); };

    const std::string missing = m_dir + "/missing.kws";
    const std::string malformed = write("malformed.kws", "<properties name=\"Workspace\">\n<properties");
    const std::string noAlgorithms = write("empty.kws", "<properties name=\"Workspace\"/>");
    const std::vector<std::pair<std::string, std::string>> unreadable{
        {missing, "no such file"},
        {m_dir, "not a file"},
        {malformed, malformed + ":2:"},
        {noAlgorithms, "no \"Algorithms\" block"},
    };
    for (const auto& [file, reason] : unreadable) {
        const auto report = load(file);
        EXPECT_FALSE(report.read);
        ASSERT_EQ(report.errors.size(), 1u) << file;
        const std::string& error = report.errors.front();
        const std::string expected = "Cannot load workspace " + file + ": " + reason;
        EXPECT_EQ(file == malformed ? error.substr(0, expected.size()) : error, expected); // + parser detail
        EXPECT_TRUE(capture->contains(Log::Error, "Workspace", error));
    }

    const std::string failing = write("failing.kws", workspace("<properties name=\"Test.Failing\"/>\n"
                                                               "<properties name=\"Test.Throwing\"/>\n"
                                                               "<properties name=\"Test.Settings\"/>\n"));
    Workspace workspace;
    const auto report = workspace.load(failing, m_registry);
    EXPECT_EQ(report.computed, 1u);
    EXPECT_EQ(report.errors,
              (std::vector<std::string>{"Workspace " + failing + ": algorithm Test.Failing failed (status 1)",
                                        "Workspace " + failing + ": algorithm Test.Throwing failed: boom"}));
    // Failed algorithms keep their place, so that saving loses nothing.
    ASSERT_EQ(workspace.algorithms().size(), 3u);
    EXPECT_FALSE(workspace.algorithms()[0].computed);
    EXPECT_TRUE(workspace.algorithms()[2].computed);

    EXPECT_FALSE(workspace.save(m_dir + "/no/such/folder/x.kws"));
    EXPECT_TRUE(capture->contains(Log::Error, "Workspace",
                                  "Cannot save workspace " + m_dir + "/no/such/folder/x.kws"));

    // A conversion that throws stops the loading, naming the conversion and its reason.
    WorkspaceConversionRegistry::instance().addConversion(
        {"breaks", 1, [](Properties&, const Filesystem::Path&) -> bool { throw std::runtime_error("no"); }});
    EXPECT_EQ(load(failing).errors, std::vector<std::string>{"Cannot load workspace " + failing +
                                                             ": conversion \"breaks\" failed: no"});
    WorkspaceConversionRegistry::instance().removeOwnedBy("");
}
