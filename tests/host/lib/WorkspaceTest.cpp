#include "host/lib/Workspace.h"
#include "host/core/File.h"
#include "host/core/Parameter.h"
#include "host/core/PropertiesXml.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/WorkspaceConversionRegistry.h"
#include "tests/support/LogCapture.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace Kestrion;

namespace {

class Settings : public Algorithm {
public:
    void compute() override {}
    Parameter<double> gain{"gain", 1.0, this};
    Parameter<bool> enabled{"enabled", true, this};
    // Read, but written only when set.
    std::vector<std::string> optionalParameterNames() const override { return {"limit"}; }
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
        registerAlgorithm<Throwing>("Throwing", "Test;Throwing");
    }
};

class WorkspaceTest : public ::testing::Test {
protected:
    void SetUp() override { m_registry.addAlgorithmFactory(std::make_unique<WorkspaceFactory>(), ""); }

    std::string write(const std::string& name, const std::string& text) {
        const std::string file = m_dir + "/" + name;
        EXPECT_TRUE(Filesystem::File::writeText(file, text));
        return file;
    }
    static std::string workspace(const std::string& algorithms, const std::string& more = "") {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<properties name=\"Workspace\">\n" + more +
               "<properties name=\"Algorithms\">\n" + algorithms + "</properties>\n</properties>\n";
    }

    QTemporaryDir m_temp;
    const std::string m_dir = m_temp.path().toStdString();
    FactoryRegistry m_registry;
};

} // namespace

TEST_F(WorkspaceTest, SavingWritesBackWhatWasReadIncludingBlocksNobodyCreates) {
    const std::string file = write(
        "first.kws",
        workspace("<properties name=\"Test.Settings\"><param name=\"gain\" type=\"double\">2.5</param>"
                  "<param name=\"enabled\" type=\"bool\">false</param></properties>\n"
                  "<properties name=\"Vendor.Unknown\" note=\"x\"><param name=\"x\" type=\"int\">1</param>\n"
                  "<properties name=\"Sub\"><param name=\"y\" type=\"string\">deep</param></properties>\n"
                  "</properties>\n",
                  "<param name=\"title\" type=\"string\">OR 3</param>\n"));
    Workspace loaded;
    EXPECT_EQ(loaded.load(file, m_registry).created, 1u);
    auto* settings = dynamic_cast<Settings*>(loaded.algorithms()[0].algorithm.get());
    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->gain.value(), 2.5);

    const std::string copy = m_dir + "/copy.kws";
    ASSERT_TRUE(loaded.save(copy));
    const auto original = PropertiesXml::readFile(file);
    const auto saved = PropertiesXml::readFile(copy);
    ASSERT_TRUE(original && saved);
    EXPECT_TRUE(*saved == *original) << Filesystem::File::readText(copy).value_or("");
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

    const std::string failing = write("failing.kws", workspace("<properties name=\"Test.Throwing\"/>\n"
                                                               "<properties name=\"Test.Settings\"/>\n"));
    Workspace workspace;
    const auto report = workspace.load(failing, m_registry);
    EXPECT_EQ(report.computed, 1u);
    EXPECT_EQ(report.errors,
              std::vector<std::string>{"Workspace " + failing + ": algorithm Test.Throwing failed: boom"});
    // Failed algorithms keep their place, so that saving loses nothing.
    ASSERT_EQ(workspace.algorithms().size(), 2u);
    EXPECT_FALSE(workspace.algorithms()[0].computed);
    EXPECT_TRUE(workspace.algorithms()[1].computed);

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

TEST_F(WorkspaceTest, AParameterNoAlgorithmKnowsIsNamedWithTheKnownOnes) {
    TestSupport::LogCapture capture;
    const std::string file = write(
        "typo.kws",
        workspace("<properties name=\"Test.Settings\"><param name=\"gian\" type=\"double\">2.5"
                  "</param><param name=\"open\" type=\"bool\">true</param><param name=\"limit\">3</param>"
                  "<properties name=\"Extra\"/></properties>\n"));
    Workspace loaded;
    EXPECT_EQ(loaded.load(file, m_registry).computed, 1u);
    for (const char* key : {"gian", "Extra"})
        EXPECT_TRUE(capture->contains(Log::Warning, "Workspace",
                                      "Workspace " + file +
                                          ": algorithm Test.Settings knows no parameter \"" + key +
                                          "\" (its parameters: gain, enabled, limit)"))
            << capture->dump();
    EXPECT_EQ(loaded.warnUnknownParameters(loaded.algorithms()[0]),
              (std::vector<std::string>{"gian", "Extra"}));
    EXPECT_FALSE(
        capture->contains(Log::Warning, "Workspace",
                          "Workspace " + file +
                              ": algorithm Test.Settings knows no parameter \"open\" (its parameters: "
                              "gain, enabled, limit)"));
}
