#pragma once

#include "simulator/src/OptionTable.h"
#include "simulator/src/Session.h"

#include <ftkInterface.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion::Simulator {

class Device;

/// What ftkInit returns: the devices of the scene at the time it was opened (one session each),
/// the library's global options, and the last error and warning reported through it.
class LibraryHandle {
public:
    explicit LibraryHandle(const std::vector<std::shared_ptr<Device>>& devices);
    LibraryHandle(const LibraryHandle&) = delete;
    LibraryHandle& operator=(const LibraryHandle&) = delete;

    /// The session of a device that is present (not hidden by a fault), or null.
    Session* session(std::uint64_t serial);
    /// Every session, in scene order (fixed for the handle's life, so read without a lock).
    const std::vector<std::unique_ptr<Session>>& sessions() const { return m_sessions; }

    /// Global options (serial 0). Callers hold globalsLock() while using them.
    OptionTable& globals() { return m_globals; }
    std::unique_lock<std::mutex> globalsLock() { return std::unique_lock<std::mutex>(m_globalsMutex); }

    /// Remembers a failure (positive status) or warning (negative) for ftkGetLastErrorString.
    ftkError report(ftkError status, const std::string& message);
    /// The XML text: <ftkError> with <errors>, <warnings> and <messages>.
    std::string errorText() const;

private:
    std::vector<std::unique_ptr<Session>> m_sessions;

    // Global options are written from any thread holding the handle.
    std::mutex m_globalsMutex;
    OptionTable m_globals;

    // Failures are reported from every thread that uses the handle (fetch, options, geometries).
    mutable std::mutex m_errorMutex;
    ftkError m_error = ftkError::FTK_OK;
    std::string m_errorMessage;
    ftkError m_warning = ftkError::FTK_OK;
    std::string m_warningMessage;
    std::uint64_t m_reports = 0;
};

} // namespace Kestrion::Simulator

/// The opaque handle type of the C interface.
struct ftkLibraryImp : Kestrion::Simulator::LibraryHandle {
    using Kestrion::Simulator::LibraryHandle::LibraryHandle;
};
