#include "host/stream/CreateStreamIoAlgorithm.h"
#include "host/core/Configurable.h"
#include "host/core/Properties.h"
#include "host/stream/Stream.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace Kestrion;

namespace {

/// A device-like stream: configurable, told to fail or throw on open or start.
class CountingStream : public Stream, public Configurable {
public:
    static inline int live = 0;
    static inline int destroyed = 0;
    static inline bool failOpen = false;
    static inline bool throwOnOpen = false;
    static inline bool throwOnStart = false;

    explicit CountingStream(const std::string& name)
        : Stream(name) {
        ++live;
    }
    ~CountingStream() override {
        close();
        --live;
        ++destroyed;
    }

    void configure(const Properties* properties) override {
        if (properties)
            properties->getParam("gain", gain);
    }
    void configuration(Properties* properties) const override {
        if (properties)
            properties->setParam("gain", gain);
    }

    int gain = 1;

protected:
    bool openImpl() override {
        if (throwOnOpen)
            throw std::runtime_error("camera unplugged");
        return !failOpen;
    }
    bool startImpl() override {
        if (throwOnStart)
            throw std::runtime_error("no geometry");
        return true;
    }
};
} // namespace

namespace Kestrion {
template <>
struct CreatedStreamName<CountingStream> {
    static std::string get() { return "Counting Stream"; }
};
} // namespace Kestrion

namespace {

using Algo = CreateStreamIoAlgorithm<CountingStream, false, false>;

class CreateStreamIoAlgorithmTest : public ::testing::Test {
protected:
    void SetUp() override {
        CountingStream::destroyed = 0;
        CountingStream::failOpen = CountingStream::throwOnOpen = CountingStream::throwOnStart = false;
    }
    void TearDown() override { EXPECT_EQ(CountingStream::live, 0); }

    static Stream::State stateAfter(const Properties& properties) {
        Algo algorithm;
        algorithm.configure(&properties);
        algorithm.compute();
        EXPECT_EQ(algorithm.status(), Algorithm::Success);
        return algorithm.stream() ? algorithm.stream()->currentState() : Stream::State::Opening;
    }
};

Properties flags(std::initializer_list<std::pair<const char*, bool>> values) {
    Properties p;
    for (const auto& [key, value] : values)
        p.setParam(key, value);
    return p;
}

TEST_F(CreateStreamIoAlgorithmTest, TheFirstKeyPresentDecidesWhetherTheStreamIsOpenedAndStarted) {
    using S = Stream::State;
    EXPECT_EQ(stateAfter(flags({})), S::Closed);
    EXPECT_EQ(stateAfter(flags({{"autoOpen", true}})), S::Open);
    EXPECT_EQ(stateAfter(flags({{"open", false}, {"autoOpen", true}})), S::Closed);
    EXPECT_EQ(stateAfter(flags({{"autoOpen", false}, {"connect", true}})), S::Closed);
    EXPECT_EQ(stateAfter(flags({{"connect", true}})), S::Open);
    EXPECT_EQ(stateAfter(flags({{"open", true}, {"autoStart", true}})), S::Running);
    EXPECT_EQ(stateAfter(flags({{"open", true}, {"start", false}, {"autoStart", true}})), S::Open);

    // A later tree without the keys keeps the flags; one with them changes them.
    Algo algorithm;
    Properties first = flags({{"open", true}, {"start", true}});
    algorithm.configure(&first);
    Properties off = flags({{"autoStart", false}});
    algorithm.configure(&off);
    EXPECT_TRUE(algorithm.openOnCreate());
    EXPECT_FALSE(algorithm.startOnCreate());

    // The template parameters are the flags' initial values.
    CreateStreamIoAlgorithm<CountingStream, true, true> alwaysOn;
    alwaysOn.compute();
    ASSERT_NE(alwaysOn.stream(), nullptr);
    EXPECT_EQ(alwaysOn.stream()->currentState(), S::Running);
    EXPECT_EQ(alwaysOn.stream()->name(), "Counting Stream");
}

TEST_F(CreateStreamIoAlgorithmTest, ConfigurationIsTheStoredTreeBeforeComputeAndTheStreamsAfter) {
    Algo algorithm;
    Properties older;
    older.setParam("exposure", 3);
    algorithm.configure(&older);
    Properties p;
    p.setParam("gain", 7);
    p.setParam("autoOpen", false);
    p.addSubProperties("TrackingTargets")->setParam("Path", std::string("a.ini"));
    algorithm.configure(&p);
    Properties before;
    algorithm.configuration(&before);
    EXPECT_EQ(before, p); // the last tree replaces the older one, nothing of it is kept

    algorithm.compute();
    ASSERT_NE(algorithm.stream(), nullptr);
    Properties after;
    algorithm.configuration(&after);
    Properties expected;
    expected.setParam("gain", 7);
    EXPECT_EQ(after, expected); // the stored tree went to the new stream, which now answers

    Properties change;
    change.setParam("gain", 9);
    algorithm.configure(&change); // forwarded to the live stream
    EXPECT_EQ(algorithm.stream()->gain, 9);
}

TEST_F(CreateStreamIoAlgorithmTest, FailuresLeaveStatusOneAndExceptionsAreLoggedWithoutAStream) {
    TestSupport::LogCapture capture;
    Properties openStart = flags({{"open", true}, {"start", true}});

    {
        CountingStream::failOpen = true;
        Algo algorithm;
        algorithm.configure(&openStart);
        algorithm.compute();
        EXPECT_EQ(algorithm.status(), Algorithm::Error);
        ASSERT_NE(algorithm.stream(), nullptr); // a refused open keeps the stream, closed
        EXPECT_EQ(algorithm.stream()->currentState(), Stream::State::Closed);
        CountingStream::failOpen = false;
        algorithm.compute(); // a new attempt replaces (and deletes) the old stream
        EXPECT_EQ(algorithm.status(), Algorithm::Success);
        EXPECT_EQ(CountingStream::destroyed, 1);
    }
    // An exception while opening or starting deletes the half-made stream.
    for (auto [flag, reason] : {std::pair{&CountingStream::throwOnOpen, "camera unplugged"},
                                std::pair{&CountingStream::throwOnStart, "no geometry"}}) {
        *flag = true;
        Algo algorithm;
        algorithm.configure(&openStart);
        algorithm.compute();
        *flag = false;
        EXPECT_EQ(algorithm.status(), Algorithm::Error);
        EXPECT_EQ(algorithm.stream(), nullptr);
        EXPECT_TRUE(capture->contains(Log::Error, "CreateStreamIoAlgorithm",
                                      std::string("Could not instantiate a new Stream: ") + reason))
            << capture->dump();
    }
}

TEST_F(CreateStreamIoAlgorithmTest, ATakenStreamBelongsToTheCallerAndIsNotDeletedByTheAlgorithm) {
    std::unique_ptr<Stream> taken;
    {
        Algo algorithm;
        algorithm.compute();
        CountingStream* made = algorithm.stream();
        taken = algorithm.takeOutput();
        EXPECT_EQ(taken.get(), made);
        EXPECT_EQ(algorithm.takeOutput(), nullptr); // only once
        algorithm.resetStream();
    }
    EXPECT_EQ(CountingStream::destroyed, 0);
    taken.reset();
    EXPECT_EQ(CountingStream::destroyed, 1);
    {
        Algo algorithm;
        algorithm.compute();
    } // not taken: deleted with the algorithm
    EXPECT_EQ(CountingStream::destroyed, 2);
}

} // namespace
