// Where the OpenIGTLink server may listen: the port and bind address as a user types them, and
// the server refusing what the checks refuse with the same reason.
#include "host/igtl/IgtlEndpoint.h"
#include "host/igtl/IgtlServer.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

namespace Kestrion::Igtl {
namespace {

std::string portReason(const std::string& text) {
    std::string problem = "unchanged";
    EXPECT_FALSE(IgtlEndpoint::parsePort(text, &problem).has_value()) << text;
    return problem;
}

TEST(IgtlEndpoint, PortsAsTyped) {
    std::string problem = "stale";
    EXPECT_EQ(IgtlEndpoint::parsePort("18944", &problem), 18944);
    EXPECT_EQ(problem, "");
    EXPECT_EQ(IgtlEndpoint::parsePort(" 0 ", nullptr), 0);
    EXPECT_EQ(IgtlEndpoint::parsePort("65535", nullptr), 65535);
    EXPECT_EQ(portReason(""), "the port is empty");
    EXPECT_EQ(portReason("   "), "the port is empty");
    EXPECT_EQ(portReason("18a44"), "the port \"18a44\" is not a number");
    EXPECT_EQ(portReason("-1"), "the port \"-1\" is not a number");
    EXPECT_EQ(portReason("189 44"), "the port \"189 44\" is not a number");
    EXPECT_EQ(portReason("65536"), "the port is not between 0 and 65535");
    EXPECT_EQ(portReason("99999999999999999999999"), "the port is not between 0 and 65535");
    EXPECT_EQ(IgtlEndpoint::portProblem(-1), "the port is not between 0 and 65535");
}

TEST(IgtlEndpoint, BindAddressesAndWhomTheyServe) {
    for (const char* valid : {"127.0.0.1", "0.0.0.0", "192.168.1.20"})
        EXPECT_EQ(IgtlEndpoint::bindAddressProblem(valid), "") << valid;
    for (const char* invalid : {"", "127.0.0.300", "127.0.0", "localhost", "::1", " 127.0.0.1"})
        EXPECT_EQ(IgtlEndpoint::bindAddressProblem(invalid), "not an IPv4 address") << invalid;
    EXPECT_TRUE(IgtlEndpoint::isLoopback("127.0.0.1"));
    EXPECT_TRUE(IgtlEndpoint::isLoopback("127.10.0.3"));
    EXPECT_FALSE(IgtlEndpoint::isLoopback("0.0.0.0"));
    EXPECT_FALSE(IgtlEndpoint::isLoopback("128.0.0.1"));
    EXPECT_FALSE(IgtlEndpoint::isLoopback("127.0.0.300"));

    // The server gives the checks' reasons, without touching a socket.
    TestSupport::LogCapture log;
    IgtlServerSettings settings;
    settings.port = 70000;
    std::string error;
    EXPECT_FALSE(IgtlServer(settings).start(&error));
    EXPECT_EQ(error,
              "OpenIGTLink server cannot listen on 127.0.0.1:70000: the port is not between 0 and 65535");
    settings.port = 0;
    settings.bindAddress = "127.0.0.300";
    EXPECT_FALSE(IgtlServer(settings).start(&error));
    EXPECT_EQ(error, "OpenIGTLink server cannot listen on 127.0.0.300:0: not an IPv4 address");
    EXPECT_TRUE(log->contains(Log::Error, "IgtlServer", error));
}

} // namespace
} // namespace Kestrion::Igtl
