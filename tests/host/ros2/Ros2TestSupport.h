#pragma once

// Subscriber processes (ros2_test_subscriber) and the lines they print, for the publisher's tests.

#include <QProcess>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion::Ros2::Ros2Test {

/// A domain of this test process's own (100 to 199), so that tests running at once never meet.
int testDomain();

/// A transform or a pose as a subscriber printed it.
struct Received {
    std::string kind; ///< "tf" or "pose"
    std::string tool; ///< pose: the tool of the topic
    std::uint64_t stampUS = 0;
    std::string parent; ///< tf: header frame; pose: its frame
    std::string child;  ///< tf only
    std::array<double, 3> translation{};
    std::array<double, 4> rotation{}; ///< x y z w
};
/// The transform or pose of a "tf ..." or "pose ..." line; none for another line.
std::optional<Received> parseLine(const std::string& line);

/// One ros2_test_subscriber process on the loopback, on `domain`, with pose readers for `tools`.
class SubscriberProcess {
public:
    SubscriberProcess(int domain, const std::string& nameSpace, const std::vector<std::string>& tools);
    ~SubscriberProcess();

    /// Reads what the process printed so far into lines().
    void pump();
    /// Pumps until the condition on the lines holds; false after 30 s.
    bool waitFor(const std::function<bool(const std::vector<std::string>&)>& condition);
    /// Closes its input, waits for it to end after its last take, and reads everything.
    bool finish();
    const std::vector<std::string>& lines() const { return m_lines; }
    /// Whether some line starts with `prefix`.
    bool has(const std::string& prefix) const;

private:
    QProcess m_process;
    std::string m_partial;
    std::vector<std::string> m_lines;
};

} // namespace Kestrion::Ros2::Ros2Test
