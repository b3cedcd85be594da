#pragma once

#include "host/core/Algorithm.h"
#include "host/core/Parameter.h"
#include "host/igtl/IgtlServer.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {
class TrackingStream;
}

namespace Kestrion::Igtl {

/// The OpenIGTLink server as an algorithm of a workspace, so that a host lists it, shows its
/// settings and, when a saved workspace is opened again, serves again. Its settings, saved with
/// the workspace: "port" (default 18944; 0 lets the system choose), "bindAddress" (default
/// "127.0.0.1", this computer only) and "imageRateHz" (camera images sent per second, 0 none).
/// Whether it listens is state, never saved: state() tells it, with the reason of the last
/// failed start. Settings are applied by start(); the host hands it the stream to serve with
/// serve().
///
/// Threads: start(), stop(), serve() and the readers may be called from any thread but a
/// stream's worker (a host computes on a pool thread, its panel works on the GUI thread).
class IgtlServerAlgorithm : public Algorithm {
public:
    /// What the server does now.
    struct State {
        bool listening = false;
        /// Where it listens ("127.0.0.1:18944", the port the system chose for 0), when it does.
        std::string endpoint;
        /// The settings the running server was started with.
        IgtlServerSettings running;
        /// Why the last start failed ("OpenIGTLink server cannot listen on 127.0.0.1:18944:
        /// Address already in use"); "" after a start that succeeded, and after stop().
        std::string error;
    };

    IgtlServerAlgorithm();
    ~IgtlServerAlgorithm() override;

    /// start(): status Error when the server could not listen.
    void compute() override;
    /// Listens with the settings as they are now. A running server on another address or port
    /// goes on until the new one listens, so a start that fails (a mistyped address, a port in
    /// use) leaves it serving; one on the same address and port is stopped first, to free it.
    /// False, with the reason in state().error and logged, when the new server cannot listen.
    bool start();
    /// Stops listening and closes every client.
    void stop();
    /// Serves `stream` (null: none) now, and from every later start on. The stream must outlive
    /// its serving.
    void serve(TrackingStream* stream);

    State state() const;
    /// The port listened on; 0 when not listening.
    int port() const;
    /// The connected clients, in order of connection (none when not listening).
    std::vector<IgtlClientInfo> clients() const;
    /// The settings start() would use now.
    IgtlServerSettings settings() const;
    void setPort(int port) { m_portSetting = port; }
    void setBindAddress(const std::string& address) { m_bindAddress = address; }
    void setImageRateHz(double rate) { m_imageRate = rate; }

    std::string failureReason() const override;
    /// "listening" was saved by earlier versions, when the state looked like a setting; it is
    /// read from old workspaces without a warning and never written.
    std::vector<std::string> optionalParameterNames() const override { return {"listening"}; }

private:
    Parameter<int> m_portSetting{"port", 18944, this};
    Parameter<std::string> m_bindAddress{"bindAddress", "127.0.0.1", this};
    Parameter<double> m_imageRate{"imageRateHz", 5.0, this};

    // start(), stop() and serve() come from a host's compute thread and its GUI thread; the
    // readers from the GUI thread's refresh. Held while a server starts or stops (bind, listen,
    // joining the server's threads: no waiting on a client or on the network).
    mutable std::mutex m_mutex;
    std::unique_ptr<IgtlServer> m_server;
    TrackingStream* m_stream = nullptr;
    std::string m_error;
};

} // namespace Kestrion::Igtl
