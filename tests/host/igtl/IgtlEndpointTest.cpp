// The port and bind address of the OpenIGTLink server as a user types them.
#include "host/igtl/IgtlEndpoint.h"

#include <gtest/gtest.h>

namespace Kestrion::Igtl {
namespace {

TEST(IgtlEndpoint, PortsAndAddressesAsTyped) {
    EXPECT_EQ(IgtlEndpoint::parsePort(" 0 ", nullptr), 0);
    EXPECT_EQ(IgtlEndpoint::parsePort("65535", nullptr), 65535);
    const std::pair<const char*, const char*> refused[] = {
        {"", "the port is empty"},
        {"-1", "the port \"-1\" is not a number"},
        {"65536", "the port is not between 0 and 65535"},
        {"99999999999999999999999", "the port is not between 0 and 65535"}};
    for (const auto& [text, reason] : refused) {
        std::string problem;
        EXPECT_FALSE(IgtlEndpoint::parsePort(text, &problem)) << text;
        EXPECT_EQ(problem, reason);
    }
    for (const char* invalid : {"", "127.0.0", "localhost", "::1", " 127.0.0.1"})
        EXPECT_EQ(IgtlEndpoint::bindAddressProblem(invalid), "not an IPv4 address") << invalid;
    EXPECT_TRUE(IgtlEndpoint::isLoopback("127.10.0.3"));
    EXPECT_FALSE(IgtlEndpoint::isLoopback("0.0.0.0"));
    EXPECT_FALSE(IgtlEndpoint::isLoopback("128.0.0.1"));
}

} // namespace
} // namespace Kestrion::Igtl
