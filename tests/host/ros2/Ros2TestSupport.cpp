#include "Ros2TestSupport.h"

#include <QProcessEnvironment>

#include <sstream>
#include <thread>
#include <unistd.h>

namespace Kestrion::Ros2::Ros2Test {

int testDomain() {
    return 100 + static_cast<int>(::getpid() % 100);
}

std::optional<Received> parseLine(const std::string& line) {
    std::istringstream in(line);
    Received r;
    in >> r.kind;
    if (r.kind != "tf" && r.kind != "pose")
        return std::nullopt;
    if (r.kind == "pose")
        in >> r.tool;
    std::uint64_t sec = 0, nanosec = 0;
    in >> sec >> nanosec >> r.parent;
    if (r.kind == "tf")
        in >> r.child;
    for (double& v : r.translation)
        in >> v;
    for (double& v : r.rotation)
        in >> v;
    if (!in)
        return std::nullopt;
    r.stampUS = sec * 1000000 + nanosec / 1000;
    return r;
}

SubscriberProcess::SubscriberProcess(int domain, const std::string& nameSpace,
                                     const std::vector<std::string>& tools) {
    QStringList arguments{QString::number(domain), QString::fromStdString(nameSpace)};
    for (const auto& tool : tools)
        arguments << QString::fromStdString(tool);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("CYCLONEDDS_URI"); // the loopback configuration, whatever the machine says
    m_process.setProcessEnvironment(env);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(ROS2_TEST_SUBSCRIBER, arguments);
}

SubscriberProcess::~SubscriberProcess() {
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

void SubscriberProcess::pump() {
    m_process.waitForReadyRead(5);
    m_partial += m_process.readAllStandardOutput().toStdString();
    std::size_t end = 0;
    while ((end = m_partial.find('\n')) != std::string::npos) {
        m_lines.push_back(m_partial.substr(0, end));
        m_partial.erase(0, end + 1);
    }
}

bool SubscriberProcess::waitFor(const std::function<bool(const std::vector<std::string>&)>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition(m_lines)) {
        if (std::chrono::steady_clock::now() > deadline || m_process.state() == QProcess::NotRunning)
            return condition(m_lines);
        pump();
    }
    return true;
}

bool SubscriberProcess::finish() {
    m_process.closeWriteChannel();
    const bool ended = m_process.waitForFinished(30000) && m_process.exitCode() == 0;
    pump();
    return ended;
}

bool SubscriberProcess::has(const std::string& prefix) const {
    for (const auto& line : m_lines)
        if (line.rfind(prefix, 0) == 0)
            return true;
    return false;
}

} // namespace Kestrion::Ros2::Ros2Test
