#pragma once

#include <optional>
#include <string>

namespace Kestrion::Igtl {

/// Where an OpenIGTLink server listens, checked before it tries: the one definition of a valid
/// port and bind address, used by the server when it starts and by panels while the user types,
/// so that both give the same reason.
namespace IgtlEndpoint {

/// Why `port` cannot be listened on ("" when it can): 0 (the system chooses) to 65535.
std::string portProblem(int port);
/// The port in `text` (decimal digits, surrounding spaces allowed), or nothing with the reason
/// in *problem ("the port is empty", "the port \"18a44\" is not a number", or portProblem()'s).
std::optional<int> parsePort(const std::string& text, std::string* problem);
/// Why `address` cannot be listened on ("" when it can): a dotted IPv4 address.
std::string bindAddressProblem(const std::string& address);
/// Whether `address` reaches this computer only (127.0.0.0/8); false for an invalid address.
bool isLoopback(const std::string& address);

} // namespace IgtlEndpoint
} // namespace Kestrion::Igtl
