#include "tests/hardening/ProcessRun.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Kestrion::HardeningTest {

std::ostream& operator<<(std::ostream& s, const ProcessResult& r) {
    return s << "exit " << r.exitCode << "\n--- stdout\n" << r.out << "--- stderr\n" << r.err;
}

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& variables,
                         const std::string& workingFolder, int timeoutMs) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"KESTRION_LICENSE", "FTK_SIMULATOR_SCENE", "KESTRION_PLUGIN_PATH"})
        env.remove(name);
    for (const auto& [name, value] : variables) {
        if (value.empty())
            env.remove(QString::fromStdString(name));
        else
            env.insert(QString::fromStdString(name), QString::fromStdString(value));
    }
    QStringList list;
    for (const auto& argument : arguments)
        list << QString::fromStdString(argument);
    QProcess process;
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(QString::fromStdString(workingFolder));
    process.start(QString::fromStdString(program), list);
    ProcessResult result;
    const bool finished = process.waitForFinished(timeoutMs);
    if (!finished) {
        process.kill();
        process.waitForFinished(10000);
    }
    result.out = process.readAllStandardOutput().toStdString();
    result.err = process.readAllStandardError().toStdString();
    if (finished && process.exitStatus() == QProcess::NormalExit)
        result.exitCode = process.exitCode();
    return result;
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kestrion-hardening-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("cannot create a temporary folder");
    m_path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TemporaryFolder::write(const std::string& name, const std::string& content) const {
    const std::string file = path(name);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

std::vector<std::string> folderEntries(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace Kestrion::HardeningTest
