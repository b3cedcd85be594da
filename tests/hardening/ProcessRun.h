#pragma once

// Runs the host applications as a user does, keeping what they printed and how they ended.

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace Kestrion::HardeningTest {

struct ProcessResult {
    int exitCode = -1; ///< -1 when the process crashed or did not end in time
    std::string out;
    std::string err;
    bool outHas(const std::string& text) const { return out.find(text) != std::string::npos; }
    bool errHas(const std::string& text) const { return err.find(text) != std::string::npos; }
};

std::ostream& operator<<(std::ostream& s, const ProcessResult& r);

/// Runs `program` with `arguments` in `workingFolder`; the environment is the test's own without
/// licence, scene and plugin path settings, plus `variables` (an empty value removes one).
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& variables,
                         const std::string& workingFolder, int timeoutMs = 180000);

/// A fresh temporary folder, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;

    const std::string& path() const { return m_path; }
    std::string path(const std::string& name) const { return m_path + "/" + name; }
    /// Writes `content` to `name` in the folder and returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string m_path;
};

std::string readFile(const std::string& path);                     ///< empty when it cannot be read
std::vector<std::string> folderEntries(const std::string& folder); ///< sorted names

} // namespace Kestrion::HardeningTest
