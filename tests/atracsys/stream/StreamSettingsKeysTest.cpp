// The workspace keys of the instrument names and the reference instrument: read, refused with the
// reason, written back only when set.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/core/Properties.h"
#include "host/stream/state/InstrumentNames.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

TEST(StreamSettingsKeys, NamesAndReferenceAreReadRefusedWithTheReasonAndWrittenBack) {
    TestSupport::LogCapture capture;
    AtracsysTrackingStream stream("stream");
    Properties settings;
    settings.setParam("instrumentNames",
                      std::string("atracsys-1000=Stylus;atracsys-1001=reference;broken;;atracsys-1002=Stylus;"
                                  "atracsys-1003=Ref2"));
    settings.setParam("referenceInstrument", std::string("atracsys-1003"));
    stream.configure(&settings);

    ASSERT_TRUE(stream.instrumentNames());
    EXPECT_EQ(stream.instrumentNames()->names(),
              (std::map<std::string, std::string>{{"atracsys-1000", "Stylus"}, {"atracsys-1003", "Ref2"}}));
    EXPECT_EQ(stream.referenceInstrument(), "atracsys-1003");
    // Each refused pair is named with the reason; the good ones are kept.
    EXPECT_TRUE(
        capture->contains(Log::Error, StreamCategory,
                          "The name of atracsys-1001 is ignored: instrument name 'reference' must begin "
                          "with an upper-case letter (as in StylusToReference)"))
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                  "The instrument name \"broken\" of the key instrumentNames is not "
                                  "\"<instrument id>=<name>\"; it is ignored"));
    EXPECT_TRUE(
        capture->contains(Log::Error, StreamCategory,
                          "The name of atracsys-1002 is ignored: instrument name 'Stylus' is already the "
                          "name of atracsys-1000"));

    Properties written;
    stream.configuration(&written);
    EXPECT_EQ(written.param("instrumentNames", std::string()), "atracsys-1000=Stylus;atracsys-1003=Ref2");
    EXPECT_EQ(written.param("referenceInstrument", std::string()), "atracsys-1003");
    const std::vector<std::string> optional = stream.optionalParameterNames();
    for (const char* key : {"instrumentNames", "referenceInstrument"})
        EXPECT_NE(std::find(optional.begin(), optional.end(), key), optional.end()) << key;

    // Cleared, they are not written: a workspace without them reads as before.
    stream.setInstrumentNames(InstrumentNames());
    stream.setReferenceInstrument("");
    Properties cleared;
    stream.configuration(&cleared);
    EXPECT_FALSE(cleared.hasParam("instrumentNames"));
    EXPECT_FALSE(cleared.hasParam("referenceInstrument"));
}
