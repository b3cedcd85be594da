// When a camera-paced acquisition may sleep: the next frame's earliest arrival from the camera's
// own clock and counter, and nothing when those cannot be trusted.

#include "atracsys/stream/AtracsysFrameSchedule.h"

#include <gtest/gtest.h>

using Kestrion::SpryTrack::AtracsysFrameSchedule;

TEST(FrameSchedule, NextFrameIsTheLastCaptureTimePlusThePeriodKnownOnlyFromTrustedFrames) {
    AtracsysFrameSchedule schedule;
    schedule.noteFrame(10, 29'850, 1'000'000'000);
    EXPECT_FALSE(schedule.nextFrameUS()) << "one frame gives no period";

    // A lost frame (counter 11) does not change the period.
    schedule.noteFrame(12, 35'820, 1'000'005'970);
    EXPECT_EQ(schedule.periodUS(), 2985u);
    EXPECT_EQ(schedule.nextFrameUS(), 1'000'005'970u + 2985u);

    // The same frame again, or a camera that started again: no period until two frames agree.
    schedule.noteFrame(12, 35'820, 1'000'005'970);
    EXPECT_FALSE(schedule.nextFrameUS());
    schedule.noteFrame(0, 0, 1'000'009'000);
    schedule.noteFrame(1, 2985, 1'000'011'985);
    EXPECT_EQ(schedule.periodUS(), 2985u);

    // A jump of the camera's clock is no period (a frame every 10 s).
    schedule.noteFrame(2, 10'002'985, 1'000'014'970);
    EXPECT_FALSE(schedule.nextFrameUS());

    // A frame found waiting by its fetch: its capture time may be late, so no sleep after it; the
    // period stays, and the next frame waited for gives the time again.
    schedule.noteFrame(3, 10'005'970, 1'000'017'955);
    schedule.noteFrame(4, 10'008'955, 1'000'021'900, true);
    EXPECT_EQ(schedule.periodUS(), 2985u);
    EXPECT_FALSE(schedule.nextFrameUS());
    schedule.noteFrame(5, 10'011'940, 1'000'023'925);
    EXPECT_EQ(schedule.nextFrameUS(), 1'000'023'925u + 2985u);
}
