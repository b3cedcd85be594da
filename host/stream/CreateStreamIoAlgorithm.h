#pragma once

#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/stream/StreamAlgorithm.h"

#include <exception>
#include <initializer_list>
#include <memory>
#include <string>

namespace Kestrion {

/// The name that CreateStreamIoAlgorithm gives the streams of class StreamT it creates.
/// Specialise it next to the algorithm's registration for each stream class:
///
///     template <> struct CreatedStreamName<CameraStream> {
///         static std::string get() { return "Camera Stream"; }
///     };
template <class StreamT>
struct CreatedStreamName {
    static std::string get() { return "Stream"; }
};

/// An input/output algorithm that creates one stream of class StreamT (constructed from its name,
/// see CreatedStreamName) and, as configured, opens and starts it. The algorithm takes no input
/// data; its output is the stream.
///
/// Configuration: every tree given to configure() is kept (a copy of the last one) and forwarded
/// to the stream when there is one, so settings given before compute() reach the stream when it is
/// created. Two flags say what compute() does with the new stream:
/// - open on create: read from the first of the keys "open", "autoOpen", "connect" present;
/// - start on create: read from the first of the keys "start", "autoStart" present.
/// A flag whose keys are all absent keeps its value.
///
/// Template parameters: `OpenByDefault` and `StartByDefault` are the initial values of those two
/// flags, i.e. what an algorithm that was never configured with the keys does. A camera whose
/// connection the user opens from its panel passes false, false; an always-on source passes true.
///
/// Status after compute(): 0 when every requested step (create, open, start) succeeded, 1
/// otherwise. An exception while creating, opening or starting the stream is caught and logged
/// (error, category "CreateStreamIoAlgorithm", "Could not instantiate a new Stream: <what>"); the
/// algorithm is then left without a stream.
///
/// Threads: compute() blocks until the stream's asynchronous open and start have finished; the
/// algorithm itself is used from one thread at a time (the host's).
template <class StreamT, bool OpenByDefault, bool StartByDefault>
class CreateStreamIoAlgorithm : public StreamAlgorithm {
public:
    CreateStreamIoAlgorithm() = default;
    /// Deletes the stream unless it was taken.
    ~CreateStreamIoAlgorithm() override { resetStream(); }

    void configure(const Properties* properties) override {
        if (!properties)
            return;
        m_configuration = std::make_unique<Properties>(*properties);
        if (m_stream)
            m_stream->configure(properties);
        readFlag(*properties, {"open", "autoOpen", "connect"}, m_openOnCreate);
        readFlag(*properties, {"start", "autoStart"}, m_startOnCreate);
    }

    /// The stream's own configuration when there is a stream, else the last tree configured.
    void configuration(Properties* properties) const override {
        if (!properties)
            return;
        if (m_stream)
            m_stream->configuration(properties);
        else if (m_configuration)
            *properties = *m_configuration;
    }

    std::vector<std::string> optionalParameterNames() const override {
        return m_stream ? m_stream->optionalParameterNames() : std::vector<std::string>();
    }

    /// Creates a new stream and hands it to setStream(). The previous stream (unless taken) is
    /// deleted first, so that a stream class that allows one instance only can be recreated.
    void compute() override {
        resetStream();
        StreamT* stream = nullptr;
        try {
            stream = new StreamT(CreatedStreamName<StreamT>::get());
        } catch (const std::exception& e) {
            // A stream class may refuse to exist twice, or fail to build its resources.
            logFailure(e.what());
            setStatus(Error);
            return;
        }
        setStream(stream);
    }

    /// Replaces the stream (the old one is deleted unless it was taken) with `stream`, owned from
    /// then on; configures it with the stored configuration, then opens and starts it as the
    /// flags ask, waiting for each step. Null leaves the algorithm without a stream (status 1).
    void setStream(StreamT* stream) {
        resetStream();
        m_stream = stream;
        if (!m_stream) {
            setStatus(Error);
            return;
        }
        if (m_configuration)
            m_stream->configure(m_configuration.get());
        bool ok = true;
        try {
            if (m_openOnCreate)
                ok = m_stream->openAsync().get();
            if (ok && m_startOnCreate)
                ok = m_stream->startAsync().get();
        } catch (const std::exception& e) {
            logFailure(e.what());
            resetStream();
            setStatus(Error);
            return;
        }
        setStatus(ok ? Success : Error);
    }

    /// Deletes the current stream unless its output was taken; the algorithm has no stream then.
    void resetStream() {
        if (!m_outputTaken)
            delete m_stream;
        m_stream = nullptr;
        m_outputTaken = false;
    }

    Stream* outputStream() const override { return m_stream; }

    std::unique_ptr<Stream> takeOutput() override {
        if (!m_stream || m_outputTaken)
            return nullptr;
        m_outputTaken = true;
        return std::unique_ptr<Stream>(m_stream);
    }

    /// The current stream (also after takeOutput(), without owning it), or null.
    StreamT* stream() const { return m_stream; }

    bool openOnCreate() const { return m_openOnCreate; }
    bool startOnCreate() const { return m_startOnCreate; }

private:
    static void readFlag(const Properties& properties, std::initializer_list<const char*> keys, bool& flag) {
        for (const char* key : keys)
            if (properties.hasParam(key)) {
                properties.getParam(key, flag);
                return;
            }
    }

    static void logFailure(const char* what) {
        KESTRION_LOG_ERROR("CreateStreamIoAlgorithm", "Could not instantiate a new Stream: " << what);
    }

    StreamT* m_stream = nullptr;
    bool m_outputTaken = false;
    std::unique_ptr<Properties> m_configuration;
    bool m_openOnCreate = OpenByDefault;
    bool m_startOnCreate = StartByDefault;
};

} // namespace Kestrion
