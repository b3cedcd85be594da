#include "host/core/Log.h"
#include "host/core/ConsoleLogSink.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace Kestrion;

namespace {

struct Counted {
    int* builds;
};

std::ostream& operator<<(std::ostream& out, const Counted& c) {
    ++*c.builds;
    return out << "built";
}

} // namespace

TEST(Log, LevelsFilterGloballyAndPerCategoryAndRejectedMessagesAreNeverBuilt) {
    TestSupport::LogCapture capture(Log::Warning);
    int builds = 0;
    KESTRION_LOG_INFO("Cat", Counted{&builds});
    EXPECT_EQ(builds, 0);
    KESTRION_LOG_WARN("Cat", Counted{&builds});
    EXPECT_EQ(builds, 1);
    EXPECT_TRUE(capture->contains(Log::Warning, "Cat", "built"));

    Log::setCategoryLevel("Noisy", Log::Error);
    EXPECT_FALSE(Log::isAccepted(Log::Warning, "Noisy"));
    EXPECT_TRUE(Log::isAccepted(Log::Error, "Noisy"));
    EXPECT_TRUE(Log::isAccepted(Log::Warning, "Other"));
    Log::clearCategoryLevels();
    EXPECT_TRUE(Log::isAccepted(Log::Warning, "Noisy"));
}

TEST(Log, TheConsoleCountsARepeatedLineInsteadOfWritingItAgain) {
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    {
        ConsoleLogSink console(out);
        const auto line = [&console](int level, const char* message) {
            LogRecord record;
            record.level = level;
            record.category = "Camera";
            record.message = message;
            console.write(record);
        };
        for (int i = 0; i < 4; ++i)
            line(Log::Error, "No camera");
        line(Log::Error, "Camera back");
        line(Log::Warning, "Camera back"); // another level: a new line
        line(Log::Warning, "Camera back");
    } // the last count is written when the sink goes
    std::rewind(out);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), out));
    std::fclose(out);
    EXPECT_EQ(text, "[ERROR] Camera: No camera\n"
                    "[ERROR] Camera: No camera (3 more times)\n"
                    "[ERROR] Camera: Camera back\n"
                    "[WARNING] Camera: Camera back\n"
                    "[WARNING] Camera: Camera back (1 more time)\n");
}
