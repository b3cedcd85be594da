#pragma once

#include "host/core/Algorithm.h"
#include "host/core/Parameter.h"

#include <memory>
#include <mutex>
#include <string>

namespace Kestrion {
class TrackingStream;
}

namespace Kestrion::Igtl {

class IgtlServer;

/// The OpenIGTLink server as an algorithm of a workspace, so that a host lists it, shows its
/// settings and, when a saved workspace is opened again, serves again. Its settings: "port"
/// (default 18944; 0 lets the system choose) and "bindAddress" (default "127.0.0.1", this
/// computer only); "listening" shows where it listens once computed ("127.0.0.1:18944"), or why
/// not. compute() (re)starts the server; the host hands it the stream to serve with serve().
class IgtlServerAlgorithm : public Algorithm {
public:
    IgtlServerAlgorithm();
    ~IgtlServerAlgorithm() override;

    /// Listens as configured; status Error (and the reason in "listening") when it cannot.
    void compute() override;
    /// Serves `stream` (null: none) now, or from compute() on; from any thread but the stream's
    /// worker. The stream must outlive its serving.
    void serve(TrackingStream* stream);
    /// The port listened on; 0 when not listening.
    int port() const;

private:
    Parameter<int> m_portSetting{"port", 18944, this};
    Parameter<std::string> m_bindAddress{"bindAddress", "127.0.0.1", this};
    Parameter<std::string> m_listening{"listening", "not started", this};

    // compute() runs on a host's worker thread, serve() on its GUI thread.
    mutable std::mutex m_mutex;
    std::unique_ptr<IgtlServer> m_server;
    TrackingStream* m_stream = nullptr;
};

} // namespace Kestrion::Igtl
