// What a user gives the ROS 2 publisher (options, ROS_DOMAIN_ID, CYCLONEDDS_URI, names) and the
// DDS configuration it makes of them: broken input is refused with the input and the problem.
#include "host/ros2/Ros2Settings.h"
#include "host/apps/kestrion/TrackOptions.h"
#include "host/ros2/Ros2DomainConfig.h"
#include "host/ros2/Ros2Names.h"
#include "host/stream/state/InstrumentNames.h"

#include <gtest/gtest.h>

namespace Kestrion::Ros2 {
namespace {

std::string refusal(const Ros2Settings& settings, const char* rosDomainId, const char* cycloneUri = nullptr) {
    std::string error;
    EXPECT_FALSE(Ros2DomainConfig::make(settings, rosDomainId, cycloneUri, &error));
    return error;
}

TEST(Ros2DomainConfig, KeepsToTheLoopbackUnlessTheUserNamesAnInterfaceOrAConfiguration) {
    Ros2Settings settings;
    auto config = Ros2DomainConfig::make(settings, nullptr, nullptr, nullptr);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->domainId, 0);
    EXPECT_EQ(config->reach, "loopback only");
    EXPECT_FALSE(config->reachesNetwork);
    for (const char* part :
         {"<NetworkInterface address=\"127.0.0.1\"/>", "<AllowMulticast>false</AllowMulticast>",
          "<ParticipantIndex>auto</ParticipantIndex>", "<Peers><Peer address=\"127.0.0.1\"/></Peers>"})
        EXPECT_NE(config->configuration.find(part), std::string::npos) << part;

    config = Ros2DomainConfig::make(settings, "42", nullptr, nullptr);
    EXPECT_EQ(config->domainId, 42); // ROS_DOMAIN_ID
    settings.domainId = 7;
    EXPECT_EQ(Ros2DomainConfig::make(settings, "42", nullptr, nullptr)->domainId, 7); // the option wins

    config = Ros2DomainConfig::make(settings, nullptr, "file:///etc/robot.xml", nullptr);
    EXPECT_EQ(config->configuration, "file:///etc/robot.xml");
    EXPECT_EQ(config->reach, "CYCLONEDDS_URI");
    EXPECT_TRUE(config->reachesNetwork);

    settings.networkInterface = "enp3s0";
    config = Ros2DomainConfig::make(settings, nullptr, "file:///etc/robot.xml", nullptr);
    EXPECT_EQ(config->configuration,
              "file:///etc/robot.xml,<CycloneDDS><Domain id=\"any\"><General><Interfaces>"
              "<NetworkInterface name=\"enp3s0\"/></Interfaces></General></Domain></CycloneDDS>");
    EXPECT_EQ(config->reach, "interface enp3s0");
    settings.networkInterface = "192.168.10.4";
    config = Ros2DomainConfig::make(settings, nullptr, nullptr, nullptr);
    EXPECT_NE(config->configuration.find("<NetworkInterface address=\"192.168.10.4\"/>"), std::string::npos);
    EXPECT_EQ(config->configuration.find("Peer"), std::string::npos); // the network's own discovery
}

TEST(Ros2DomainConfig, RefusesADomainOrAnInterfaceItCannotUse) {
    Ros2Settings settings;
    for (const char* broken : {"abc", "233", "-1", "7x", " 7", "99999999999999999999"})
        EXPECT_EQ(refusal(settings, broken),
                  std::string("ROS_DOMAIN_ID '") + broken + "' is not a domain number from 0 to 232");
    settings.domainId = 233;
    EXPECT_EQ(refusal(settings, nullptr), "the ROS 2 domain 233 is not between 0 and 232");
    settings.domainId = 0;
    settings.networkInterface = "eth0\"/><Peer address=\"10.0.0.1";
    EXPECT_EQ(refusal(settings, nullptr),
              "'eth0\"/><Peer address=\"10.0.0.1' is not a network interface name or IPv4 address");
}

TEST(Ros2Names, NamesToolsAndTopicsAsRos2AllowsAndRefusesOtherNames) {
    InstrumentNames names;
    ASSERT_FALSE(names.setName("atracsys-1000", "Stylus"));
    EXPECT_EQ(Ros2Names::toolName(&names, "atracsys-1000"), "Stylus");
    EXPECT_EQ(Ros2Names::toolName(&names, "atracsys-1001"), "atracsys_1001");
    EXPECT_EQ(Ros2Names::toolName(nullptr, "1001.b"), "tool_1001_b");
    EXPECT_EQ(Ros2Names::poseTopic("/lab/atracsys", "Stylus"), "rt/lab/atracsys/Stylus/pose");
    EXPECT_EQ(Ros2Names::fiducialsTopic("atracsys"), "rt/atracsys/fiducials");

    EXPECT_FALSE(Ros2Names::namespaceProblem("/lab_2/atracsys"));
    EXPECT_EQ(*Ros2Names::namespaceProblem(""), "the ROS 2 namespace '' is empty");
    EXPECT_EQ(*Ros2Names::namespaceProblem("lab//a"), "the ROS 2 namespace 'lab//a' has an empty part");
    EXPECT_EQ(*Ros2Names::namespaceProblem("lab/"), "the ROS 2 namespace 'lab/' has an empty part");
    EXPECT_EQ(*Ros2Names::namespaceProblem("lab-a"),
              "the ROS 2 namespace 'lab-a' holds '-': only letters, digits, '_' and '/' are allowed");
    EXPECT_FALSE(Ros2Names::frameProblem("world/atracsys_camera"));
    EXPECT_EQ(*Ros2Names::frameProblem("/camera"), "the frame name '/camera' begins or ends with '/'");
    EXPECT_EQ(*Ros2Names::frameProblem("my camera"),
              "the frame name 'my camera' holds ' ': only letters, digits, '_' and '/' are allowed");
}

TEST(Ros2TrackOptions, ParsesThePublisherOptionsAndRefusesBadOnes) {
    const auto options =
        Cli::TrackOptions::parse({"--ros2", "--ros2-domain", "12", "--ros2-namespace", "lab/cam",
                                  "--ros2-frame", "tracker", "--ros2-network", "eth1"},
                                 nullptr);
    ASSERT_TRUE(options);
    EXPECT_TRUE(options->ros2);
    EXPECT_EQ(options->ros2Domain, 12);
    EXPECT_EQ(options->ros2Namespace, "lab/cam");
    EXPECT_EQ(options->ros2Frame, "tracker");
    EXPECT_EQ(options->ros2Network, "eth1");
    const std::vector<std::pair<std::vector<std::string>, std::string>> broken{
        {{"--ros2", "--ros2-domain", "300"}, "--ros2-domain takes a domain number from 0 to 232, not '300'"},
        {{"--ros2", "--ros2-namespace", "9lives"},
         "--ros2-namespace: the ROS 2 namespace '9lives' has a part beginning with a digit"},
        {{"--ros2", "--ros2-frame", "a b"},
         "--ros2-frame: the frame name 'a b' holds ' ': only letters, digits, '_' and '/' are allowed"},
        {{"--ros2-network", "eth0"}, "--ros2-network needs --ros2"},
        {{"--ros2", "--ros2-domain"}, "option --ros2-domain needs a value"},
    };
    for (const auto& [arguments, message] : broken) {
        std::string error;
        EXPECT_FALSE(Cli::TrackOptions::parse(arguments, &error));
        EXPECT_EQ(error, message);
    }
}

} // namespace
} // namespace Kestrion::Ros2
