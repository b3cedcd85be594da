#include "host/igtl/IgtlEndpoint.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cctype>

namespace Kestrion::Igtl::IgtlEndpoint {

std::string portProblem(int port) {
    return port < 0 || port > 65535 ? "the port is not between 0 and 65535" : std::string();
}

std::optional<int> parsePort(const std::string& text, std::string* problem) {
    const auto fail = [&](const std::string& why) -> std::optional<int> {
        if (problem)
            *problem = why;
        return std::nullopt;
    };
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return fail("the port is empty");
    const std::string digits = text.substr(first, text.find_last_not_of(" \t") - first + 1);
    long value = 0;
    for (const char c : digits) {
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return fail("the port \"" + digits + "\" is not a number");
        value = value * 10 + (c - '0');
        if (value > 65535)
            return fail(portProblem(65536)); // stops before a long run of digits overflows
    }
    const std::string why = portProblem(static_cast<int>(value));
    if (!why.empty())
        return fail(why);
    if (problem)
        problem->clear();
    return static_cast<int>(value);
}

std::string bindAddressProblem(const std::string& address) {
    in_addr parsed{};
    return ::inet_pton(AF_INET, address.c_str(), &parsed) == 1 ? std::string() : "not an IPv4 address";
}

bool isLoopback(const std::string& address) {
    in_addr parsed{};
    if (::inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        return false;
    return (ntohl(parsed.s_addr) >> 24) == 127;
}

} // namespace Kestrion::Igtl::IgtlEndpoint
