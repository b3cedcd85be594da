// The OpenIGTLink server as a workspace algorithm: its settings, its failure, its stream.
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/core/Properties.h"
#include "host/stream/TrackingStream.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

namespace Kestrion::Igtl {
namespace {

class IdleStream : public TrackingStream {
public:
    IdleStream()
        : TrackingStream("idle") {}
    std::vector<TrackingInstrument> instruments() const override { return {}; }
};

TEST(IgtlServerAlgorithm, ListensAsConfiguredAndServesTheStreamItIsGiven) {
    TestSupport::LogCapture log;
    IdleStream stream;
    Properties settings;
    settings.setParam("port", 0);
    IgtlServerAlgorithm algorithm;
    algorithm.configure(&settings);
    algorithm.serve(&stream); // before it listens: served from compute() on
    algorithm.compute();
    ASSERT_EQ(algorithm.status(), Algorithm::Success);
    EXPECT_TRUE(stream.instrumentStatusRequested());
    Properties shown;
    algorithm.configuration(&shown);
    EXPECT_EQ(shown.param("listening", std::string()), "127.0.0.1:" + std::to_string(algorithm.port()));
    EXPECT_EQ(shown.param("port", -1), 0);

    IgtlServerAlgorithm second;
    settings.setParam("port", algorithm.port());
    second.configure(&settings);
    second.compute();
    EXPECT_EQ(second.status(), Algorithm::Error);
    Properties failed;
    second.configuration(&failed);
    EXPECT_EQ(failed.param("listening", std::string()),
              "OpenIGTLink server cannot listen on 127.0.0.1:" + std::to_string(algorithm.port()) +
                  ": Address already in use");
    algorithm.serve(nullptr);
    EXPECT_FALSE(stream.instrumentStatusRequested());
}

} // namespace
} // namespace Kestrion::Igtl
