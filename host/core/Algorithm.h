#pragma once

#include "host/core/Configurable.h"
#include "host/core/DataList.h"
#include "host/core/ProgressTask.h"

#include <atomic>
#include <string>

namespace Kestrion {

class Progress;

/// A unit of work the host creates by name through a factory, configures from the property tree
/// (Configurable), runs with compute() (often on a worker thread) and whose status it checks.
///
/// Creation hook: an algorithm class offers
///     static bool createCompatible(const DataList& data, Algorithm** algorithm);
/// which, when the class can work on the data, stores a new instance (owned by the caller) in
/// *algorithm and returns true. The base version creates nothing.
class Algorithm : public Configurable {
public:
    enum Status : int { Success = 0, Error = 1 };

    Algorithm() = default;
    ~Algorithm() override;

    virtual void compute() = 0;

    /// 0 success, 1 error; safe to read from another thread while compute() runs.
    int status() const { return m_status.load(); }
    void setStatus(int status) { m_status.store(status); }
    /// Why the last compute() failed, in the user's words, for a host to show beside its
    /// status; "" when the algorithm does not say (the host then names the status).
    virtual std::string failureReason() const { return std::string(); }

    /// The name given at registration ("SpryTrackStream") and the host identifier
    /// ("Atracsys.SpryTrackStream"); set when the algorithm is created, before it is shared.
    const std::string& name() const { return m_name; }
    void setName(const std::string& name) { m_name = name; }
    const std::string& identifier() const { return m_identifier; }
    void setIdentifier(const std::string& identifier) { m_identifier = identifier; }

    /// Where compute() reports progress (not owned; may be null). The Progress must outlive
    /// the computation.
    void setProgress(Progress* progress) { m_progress.store(progress); }
    Progress* progress() const { return m_progress.load(); }
    /// A task on progress(), or one shown nowhere when there is none, so that work can report
    /// and check for cancellation the same way in both cases.
    ProgressTask addProgressTask(int steps, const std::string& description) const;

    static bool createCompatible(const DataList& data, Algorithm** algorithm);

private:
    std::atomic<int> m_status{Success};
    std::atomic<Progress*> m_progress{nullptr}; // set by the host's thread, read by the worker
    std::string m_name;
    std::string m_identifier;
};

} // namespace Kestrion
