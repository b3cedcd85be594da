#include "host/licensing/License.h"
#include "host/licensing/LicenseService.h"
#include "host/licensing/Licensing.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

using namespace Kestrion;

namespace {

std::string parseError(const std::string& text) {
    std::string error;
    EXPECT_FALSE(License::parse(text, &error).has_value()) << text;
    return error;
}

// Points KESTRION_LICENSE at a file of the test's own for the test's duration.
class LicenseFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("KESTRION_LICENSE", m_path.c_str(), 1);
        LicenseService::instance().reload();
    }
    void TearDown() override {
        ::unsetenv("KESTRION_LICENSE");
        LicenseService::instance().reload();
        std::filesystem::remove(m_path);
    }
    void write(const std::string& text) { std::ofstream(m_path) << text; }

    const std::string m_path =
        (std::filesystem::temp_directory_path() / ("kestrion-licence-" + std::to_string(::getpid()) + ".lic"))
            .string();
};

} // namespace

TEST(License, ParsesFeaturesLicenseeAndExpiryIgnoringCommentsAndBlanks) {
    const auto license = License::parse("\n# a comment\n  KESTRION-LICENSE 1  \n\n"
                                        "licensee =  Clinic A, Ward 3 \n"
                                        "   # indented comment\n"
                                        "feature=Atracsys\n"
                                        "feature = Kestrion.Other Feature\r\n"
                                        "expires = 2030-02-28\n");
    ASSERT_TRUE(license.has_value());
    EXPECT_EQ(license->licensee(), "Clinic A, Ward 3");
    EXPECT_EQ(license->features(), (std::vector<std::string>{"Atracsys", "Kestrion.Other Feature"}));
    EXPECT_FALSE(license->lists("Atrac")); // exact names only
    const long lastDay = *License::parseDate("2030-02-28");
    EXPECT_TRUE(license->isValidOn(lastDay));
    EXPECT_FALSE(license->isValidOn(lastDay + 1));

    const auto forever = License::parse("KESTRION-LICENSE 1\n");
    ASSERT_TRUE(forever.has_value());
    EXPECT_TRUE(forever->isValidOn(1000000));

    // Dates count days since 1970-01-01, leap years included.
    EXPECT_EQ(License::parseDate("2000-03-01"), 11017);
    EXPECT_EQ(License::parseDate("2024-02-29"), 19782);
    EXPECT_FALSE(License::parseDate("1900-02-29"));
    EXPECT_GT(License::today(), 19782);
}

TEST(License, MalformedTextsNameTheLineAndTheProblem) {
    EXPECT_EQ(parseError("# only\n\n"), "line 2: no \"KESTRION-LICENSE 1\" header");
    EXPECT_EQ(parseError("KESTRION-LICENSE 2\n"), "line 1: expected \"KESTRION-LICENSE 1\"");
    EXPECT_EQ(parseError("KESTRION-LICENSE 1\nfeature Atracsys\n"), "line 2: expected \"key = value\"");
    EXPECT_EQ(parseError("KESTRION-LICENSE 1\n#\nfeatures = Atracsys\n"), "line 3: unknown key \"features\"");
    EXPECT_EQ(parseError("KESTRION-LICENSE 1\nfeature = \n"), "line 2: empty feature name");
    EXPECT_EQ(parseError("KESTRION-LICENSE 1\nexpires = 2030-01-01\nexpires = 2031-01-01\n"),
              "line 3: expires given twice");
    EXPECT_EQ(parseError("KESTRION-LICENSE 1\nexpires = 2023-02-29\n"),
              "line 2: expiry date \"2023-02-29\" is not a valid YYYY-MM-DD date");
}

TEST_F(LicenseFileTest, ListedFeaturesAreLicensedAndOthersReportedOnce) {
    write("KESTRION-LICENSE 1\nlicensee = Test\nfeature = Atracsys\nexpires = 2999-12-31\n");
    TestSupport::LogCapture capture;
    EXPECT_TRUE(isLicensed("Atracsys"));
    EXPECT_FALSE(isLicensed("Other"));
    EXPECT_FALSE(isLicensed("Other"));
    EXPECT_EQ(capture->count(Log::Info, "Licensing", "Feature \"Other\" is not licensed"), 1u)
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Info, "Licensing",
                                  "Licence file " + m_path + " for \"Test\" covers: Atracsys"))
        << capture->dump();
}

TEST_F(LicenseFileTest, MissingMalformedOrExpiredFilesAreReportedOnceAndLicenseNothing) {
    const struct {
        const char* text; // null: no file
        std::string problem;
    } rows[] = {
        {nullptr, ": No such file or directory"},
        {"KESTRION-LICENSE 1\nfeature = Atracsys\nbogus\n", ": line 3: expected \"key = value\""},
        {"KESTRION-LICENSE 1\nfeature = Atracsys\nexpires = 2001-01-31\n", " expired on 2001-01-31"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.problem);
        if (row.text)
            write(row.text);
        LicenseService::instance().reload();
        TestSupport::LogCapture capture;
        EXPECT_FALSE(isLicensed("Atracsys"));
        EXPECT_FALSE(isLicensed("Atracsys"));
        EXPECT_EQ(capture->count(Log::Error, "Licensing",
                                 "Licence file " + m_path + row.problem + "; no feature is licensed"),
                  1u)
            << capture->dump();
    }
}
