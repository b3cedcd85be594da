#include "host/core/Properties.h"
#include "host/core/Path.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {
enum class Mode : int { BestFrame = 0, Average = 1, Nonlinear = 2 };
} // namespace

TEST(Properties, TypedValuesReadBackExactly) {
    Properties p("Settings");
    // Stores the value, reads it back at once and checks its type tag.
    const auto roundTrip = [&](const std::string& name, const auto& value, const std::string& type) {
        using T = std::decay_t<decltype(value)>;
        SCOPED_TRACE(name);
        p.setParam(name, value);
        T back{};
        ASSERT_TRUE(p.getParam(name, back));
        EXPECT_EQ(back, value);
        EXPECT_EQ(p.paramType(name), type);
    };
    Eigen::Matrix4d pose = Eigen::Matrix4d::Identity();
    pose(1, 0) = -0.5;
    roundTrip("flag", true, "bool");
    roundTrip("count", -42, "int");
    roundTrip("size", 4000000000u, "unsigned");
    roundTrip("tiny", 4.9e-324, "double");
    roundTrip("ratio", 1.0f / 3.0f, "float");
    roundTrip("text", std::string("a b  c"), "string");
    roundTrip("mode", Mode::Nonlinear, "int"); // enumerations are stored as integers
    roundTrip("v2", Eigen::Vector2d(1.5, -2.25), "vector");
    roundTrip("v4", Eigen::Vector4d(1e10, -1e-10, 0, 3), "vector");
    roundTrip("pose", pose, "matrix");
    p.setParam("literal", "plain"); // a character array is a string, not a bool
    EXPECT_EQ(p.paramType("literal"), "string");
    EXPECT_EQ(p.paramText("v2"), std::optional<std::string>("1.5 -2.25"));
}

TEST(Properties, FailedReadsLeaveTheTargetUntouched) {
    Properties p;
    p.setParam("half", 3.5);
    p.setParam("negative", -1);
    p.setParam("word", std::string("abc"));
    p.setParam("big", 2147483648LL);
    p.setParam("short vector", Eigen::Vector2d(1, 2));
    p.setParamText("padded", " 42 ", "string");
    p.setParamText("junk", "12abc", "string");
    p.setParamText("upper", "TRUE", "string");

    int i = 7;
    for (const char* name : {"absent", "half", "word", "big", "junk"})
        EXPECT_FALSE(p.getParam(name, i)) << name;
    EXPECT_EQ(i, 7);
    unsigned u = 9;
    EXPECT_FALSE(p.getParam("negative", u));
    Eigen::Vector3d v(5, 5, 5);
    EXPECT_FALSE(p.getParam("short vector", v));
    EXPECT_EQ(v, Eigen::Vector3d(5, 5, 5));

    // What the text allows converts: an int as a double, padded numbers, any case for booleans.
    EXPECT_EQ(p.param("negative", 0.0), -1.0);
    EXPECT_EQ(p.param("padded", 0), 42);
    EXPECT_TRUE(p.param("upper", false));
}

TEST(Properties, ParametersKeepOrderPositionAndAttributesWhenReplaced) {
    TestSupport::LogCapture capture;
    Properties p;
    p.setParam("b", 1);
    p.setParam("a", 2);
    p.setParam("c", 3);
    ASSERT_TRUE(p.setParamAttribute("a", "hidden", "true"));
    ASSERT_TRUE(p.setParamAttribute("a", "unit", "mm"));
    p.setParam("a", std::string("now text"));
    EXPECT_EQ(p.paramNames(), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(p.paramType("a"), "string");
    EXPECT_EQ(p.paramAttributes("a"), (Properties::Attributes{{"hidden", "true"}, {"unit", "mm"}}));

    // Text of a known type is checked; editors keep the existing type.
    EXPECT_FALSE(p.setParamText("c", "three", "int"));
    EXPECT_FALSE(p.setParamFromText("c", "3.5"));
    EXPECT_EQ(p.param("c", 0), 3);

    // Refused attributes, each with a warning.
    EXPECT_FALSE(p.setParamAttribute("absent", "hidden", "true"));
    EXPECT_FALSE(p.setParamAttribute("c", "type", "x"));
    EXPECT_FALSE(p.setParamAttribute("c", "two words", "x"));
    EXPECT_FALSE(p.setAttribute("name", "x"));
    EXPECT_EQ(capture->size(), 4u) << capture->dump();
}

TEST(Properties, SubPropertiesAreOrderedFoundWithoutCreatingAndRenamedInPlace) {
    Properties workspace("Workspace");
    EXPECT_EQ(workspace.subProperty("Algorithms"), nullptr);
    Properties* algorithms = workspace.addSubProperties("Algorithms");
    Properties* first = algorithms->addSubProperties("Atracsys.AtracsysTrackingStreamSpryTrack");
    Properties* second = algorithms->addSubProperties("Other");
    Properties* third = algorithms->addSubProperties("Other");
    EXPECT_EQ(first->parent(), algorithms);
    EXPECT_EQ(algorithms->subProperty("Other"), second) << "the first block of a name is found";
    first->setName("Atracsys.SpryTrackStream");
    EXPECT_EQ(algorithms->subProperties(), (std::vector<Properties*>{first, second, third}));

    EXPECT_FALSE(algorithms->removeSubProperties(&workspace));
    EXPECT_TRUE(algorithms->removeSubProperties(third));
    EXPECT_TRUE(algorithms->removeSubProperties("Other"));
    EXPECT_EQ(algorithms->subProperties(), (std::vector<Properties*>{first}));
}

TEST(Properties, CopiesAreDeepAndIndependent) {
    Properties original("root");
    Properties* child = original.addSubProperties("child");
    child->setParam("y", 2.5);
    child->addSubProperties("grandchild")->setParam("z", std::string("deep"));

    Properties copy(original);
    EXPECT_EQ(copy, original);
    Properties* copiedChild = copy.subProperty("child");
    ASSERT_NE(copiedChild, nullptr);
    EXPECT_EQ(copiedChild->subProperty("grandchild")->parent(), copiedChild);
    copiedChild->setParam("y", 3.5);
    copiedChild->subProperty("grandchild")->setName("renamed");
    EXPECT_EQ(child->param("y", 0.0), 2.5);
    EXPECT_NE(child->subProperty("grandchild"), nullptr);

    // Assigning a block from one of its own descendants.
    Properties tree = original;
    tree = *tree.subProperty("child");
    ASSERT_NE(tree.subProperty("grandchild"), nullptr);
    EXPECT_EQ(tree.subProperty("grandchild")->parent(), &tree);

    Properties moved(std::move(copy));
    moved = std::move(*moved.subProperty("child")); // from a descendant, which the move destroys
    ASSERT_NE(moved.subProperty("renamed"), nullptr);
    EXPECT_EQ(moved.subProperty("renamed")->parent(), &moved);
}

TEST(Properties, RelativePathsResolveAgainstTheNearestBaseFolder) {
    Properties root;
    Properties* targets = root.addSubProperties("TrackingTargets");
    EXPECT_EQ(targets->absolutePath("geometry.ini"),
              Filesystem::Path::currentDirectory().join("geometry.ini").normalized().str());

    root.setBaseFolder("/data/workspaces");
    EXPECT_EQ(targets->absolutePath("../markers/./g.ini"), "/data/markers/g.ini");
    EXPECT_EQ(targets->absolutePath("/abs/./g.ini"), "/abs/./g.ini") << "absolute paths stay as they are";

    // A copy of a block keeps resolving as it did inside the tree it came from.
    Properties other;
    other.setBaseFolder("/elsewhere");
    EXPECT_EQ(other.addSubProperties(*targets)->absolutePath("g.ini"), "/data/workspaces/g.ini");
    Properties* own = root.addSubProperties(*targets);
    root.setBaseFolder("/moved");
    EXPECT_EQ(own->absolutePath("g.ini"), "/moved/g.ini") << "a block copied within its tree inherits";
}
