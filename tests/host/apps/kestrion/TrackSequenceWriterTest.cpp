// The tracking sequence file: the MetaImage sequence fields per frame and instrument, the frame
// count written at the end, and the file appearing only when complete.

#include "host/apps/kestrion/TrackSequenceWriter.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"
#include "host/stream/state/InstrumentNames.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

using namespace Kestrion;
using namespace Kestrion::Cli;

namespace {

TrackingStreamData poses(std::uint64_t arrivalMs, bool toolTracked) {
    TrackingInstrument tool(TrackerID("atracsys-1000", "tool"));
    if (toolTracked) {
        tool.matrix(0, 1) = -1.0;
        tool.matrix(1, 0) = 1.0;
        tool.matrix(0, 0) = tool.matrix(1, 1) = 0.0;
        tool.matrix(0, 3) = 1.5;
        tool.matrix(2, 3) = 800.25;
        tool.quality = 0.9;
    }
    TrackingInstrument other(TrackerID("my tool=7", "other"));
    return TrackingStreamData(nullptr, {tool, other}, arrivalMs, arrivalMs);
}

std::string content(const std::string& file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/// The field name the sequence importer looks up for a transform field of a sequence file
/// ("<From>To<To>Transform"): split at the one "To" followed by a character that upper-casing
/// leaves alone (more than one: refused), the first letter of each part upper case. Empty when
/// the name does not split that way.
std::string importedName(const std::string& field) {
    const std::string suffix = "Transform";
    if (field.size() <= suffix.size() ||
        field.compare(field.size() - suffix.size(), suffix.size(), suffix) != 0)
        return "";
    const std::string name = field.substr(0, field.size() - suffix.size());
    std::size_t split = std::string::npos;
    for (std::size_t at = name.find("To"); at != std::string::npos; at = name.find("To", at + 1)) {
        const char next = at + 2 < name.size() ? name[at + 2] : 'x';
        if (std::toupper(static_cast<unsigned char>(next)) == static_cast<unsigned char>(next)) {
            if (split != std::string::npos)
                return ""; // ambiguous
            split = at;
        }
    }
    if (split == std::string::npos || split == 0)
        return "";
    std::string from = name.substr(0, split), to = name.substr(split + 2);
    from[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(from[0])));
    to[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(to[0])));
    return from + "To" + to + suffix;
}

} // namespace

TEST(TrackSequenceWriter, WritesEveryFrameAndInstrumentAndAppearsWhenComplete) {
    QTemporaryDir temp;
    const std::string file = temp.path().toStdString() + "/poses.igs.mha";
    TrackSequenceWriter writer;
    ASSERT_TRUE(writer.open(file)) << writer.error();
    // The timestamps are capture times: 37.037 ms apart although the frames arrived 17 ms apart.
    TrackingStreamData first = poses(1000, true);
    first.addComponent(std::make_shared<CaptureTimeData>(999000000, 5000000));
    TrackingStreamData second = poses(1017, false);
    second.addComponent(std::make_shared<CaptureTimeData>(999037037, 5037037));
    EXPECT_TRUE(writer.write(0, first));
    EXPECT_TRUE(writer.write(1, second));
    EXPECT_FALSE(std::filesystem::exists(file));
    ASSERT_TRUE(writer.close()) << writer.error();
    EXPECT_FALSE(std::filesystem::exists(file + ".part"));
    EXPECT_EQ(content(file),
              "ObjectType = Image\n"
              "NDims = 3\n"
              "DimSize = 0 0 0000000002\n"
              "AnatomicalOrientation = RAI\n"
              "BinaryData = True\n"
              "BinaryDataByteOrderMSB = False\n"
              "CompressedData = False\n"
              "ElementSpacing = 1 1 1\n"
              "Offset = 0 0 0\n"
              "TransformMatrix = 1 0 0 0 1 0 0 0 1\n"
              "ElementType = MET_UCHAR\n"
              "Kinds = domain domain list\n"
              "Seq_Frame0000_FrameNumber = 0\n"
              "Seq_Frame0000_Timestamp = 0.000000\n"
              "Seq_Frame0000_Atracsys1000ToTrackerTransform = 0 -1 0 1.5 1 0 0 0 0 0 1 800.25 0 0 0 1\n"
              "Seq_Frame0000_Atracsys1000ToTrackerTransformStatus = OK\n"
              "Seq_Frame0000_Mytool7ToTrackerTransform = 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
              "Seq_Frame0000_Mytool7ToTrackerTransformStatus = INVALID\n"
              "Seq_Frame0000_ImageStatus = INVALID\n"
              "Seq_Frame0001_FrameNumber = 1\n"
              "Seq_Frame0001_Timestamp = 0.037037\n"
              "Seq_Frame0001_Atracsys1000ToTrackerTransform = 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
              "Seq_Frame0001_Atracsys1000ToTrackerTransformStatus = INVALID\n"
              "Seq_Frame0001_Mytool7ToTrackerTransform = 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
              "Seq_Frame0001_Mytool7ToTrackerTransformStatus = INVALID\n"
              "Seq_Frame0001_ImageStatus = INVALID\n"
              "ElementDataFile = LOCAL\n");

    // A run that never began leaves nothing; a ".part" file in the way is not replaced.
    TrackSequenceWriter unused;
    ASSERT_TRUE(unused.open(file + "2"));
    unused.discard();
    EXPECT_FALSE(std::filesystem::exists(file + "2.part"));
    std::ofstream(file + "3.part") << "someone else's";
    TrackSequenceWriter blocked;
    EXPECT_FALSE(blocked.open(file + "3"));
    EXPECT_EQ(blocked.error(), "sequence file " + file + "3: cannot create " + file + "3.part: File exists");
}

// Every transform field survives the sequence importer's name rule, with the user's names and the
// safe forms of ids, unique even where two ids have the same safe form.
TEST(TrackSequenceWriter, TransformNamesSurviveTheImportersRuleAndAreUniquePerInstrument) {
    QTemporaryDir temp;
    const std::string file = temp.path().toStdString() + "/named.igs.mha";
    TrackSequenceWriter writer;
    ASSERT_TRUE(writer.open(file)) << writer.error();
    auto names = std::make_shared<InstrumentNames>();
    ASSERT_FALSE(names->setName("atracsys-1001", "StylusTip"));
    ASSERT_FALSE(names->setName("atracsys-1002", "StylusToReference"));
    for (std::uint64_t i = 0; i < 3; ++i) {
        std::vector<TrackingInstrument> instruments;
        for (const char* id :
             {"atracsys-1000", "atracsys-1001", "my tool=7", "mytool-7", "7up", "atracsys-1002", "tool-To5"})
            instruments.emplace_back(TrackerID(id, id));
        TrackingStreamData frame(nullptr, instruments, 1000 + i, 1000 + i);
        frame.addComponent(names);
        ASSERT_TRUE(writer.write(i, frame));
    }
    ASSERT_TRUE(writer.close()) << writer.error();

    std::map<std::string, std::string> fields; // field name -> value
    std::istringstream in(content(file));
    for (std::string line; std::getline(in, line);)
        if (line.rfind("Seq_Frame", 0) == 0)
            fields[line.substr(0, line.find(" = "))] = line.substr(line.find(" = ") + 3);
    std::size_t transforms = 0;
    std::map<std::string, int> perFrame;
    for (const auto& [field, value] : fields) {
        const std::string prefix = field.substr(0, 14); // "Seq_Frame0000_"
        const std::string name = field.substr(14);
        if (name.size() < 9 || name.compare(name.size() - 9, 9, "Transform") != 0)
            continue;
        ++transforms;
        ++perFrame[prefix];
        const std::string imported = importedName(name);
        ASSERT_FALSE(imported.empty()) << field;
        EXPECT_EQ(fields.count(prefix + imported), 1u) << field << " is looked up as " << imported;
        EXPECT_EQ(fields.count(prefix + imported + "Status"), 1u) << field;
    }
    EXPECT_EQ(transforms, 21u);
    for (const auto& [frame, count] : perFrame)
        EXPECT_EQ(count, 7) << frame;
    for (const char* name :
         {"Atracsys1000", "StylusTip", "Mytool7", "Mytool72", "Tool7up", "StylusTOReference", "ToolTO5"})
        EXPECT_EQ(fields.count(std::string("Seq_Frame0002_") + name + "ToTrackerTransform"), 1u) << name;
}
