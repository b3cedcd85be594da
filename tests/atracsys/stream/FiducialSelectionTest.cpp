#include "atracsys/stream/AtracsysFiducialSelection.h"
#include "atracsys/stream/AtracsysFrameConverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

using Kestrion::SpryTrack::AtracsysFiducialSelection;

namespace {

constexpr std::uint32_t none = AtracsysFiducialSelection::invalidIndex;

/// A frame record built by hand: fiducials and markers in plain vectors.
struct HandFrame {
    std::vector<ftk3DFiducial> fiducials;
    std::vector<ftkMarker> markers;
    ftkFrameQuery query{};

    void addFiducial(float x, float y, float z) {
        fiducials.emplace_back();
        fiducials.back().positionMM = ftk3DPoint{x, y, z};
    }
    void addMarker(std::uint32_t geometryId, std::vector<std::uint32_t> correspondences, float x = 0,
                   float y = 0, float z = 0) {
        ftkMarker m{};
        m.geometryId = geometryId;
        for (std::uint32_t k = 0; k < FTK_MAX_FIDUCIALS; ++k)
            m.fiducialCorresp[k] = k < correspondences.size() ? correspondences[k] : INVALID_ID;
        std::tie(m.translationMM[0], m.translationMM[1], m.translationMM[2]) = std::tie(x, y, z);
        markers.push_back(m);
    }
    const ftkFrameQuery& frame() {
        query.threeDFiducials = fiducials.data();
        query.threeDFiducialsCount = static_cast<std::uint32_t>(fiducials.size());
        query.markers = markers.data();
        query.markersCount = static_cast<std::uint32_t>(markers.size());
        return query;
    }
};

} // namespace

TEST(FiducialSelection, OwnedFiducialsFollowMarkerOrderAndLaterMarkersOwnSharedFiducials) {
    HandFrame h;
    for (int i = 0; i < 6; ++i)
        h.addFiducial(static_cast<float>(i), 0, 500);
    h.addMarker(1004, {3, 1, 5});
    h.addMarker(1002, {0, 5});
    AtracsysFiducialSelection s(256, 16);

    s.assignOwners(h.frame(), true);
    EXPECT_EQ(s.selected(), (std::vector<std::uint32_t>{3, 1, 5, 0, 5}));
    // Fiducial 5 is claimed by both: the later marker wins.
    EXPECT_EQ(std::make_tuple(s.owner(3), s.owner(5), s.ownerMarker(5), s.owner(2), s.ownerMarker(4)),
              std::make_tuple(1004u, 1002u, 1u, none, none));

    // Owners are assigned in every mode, selection only with selectOwned.
    s.assignOwners(h.frame(), false);
    EXPECT_TRUE(s.selected().empty());
    EXPECT_EQ(s.owner(1), 1004u);
}

TEST(FiducialSelection, VicinityIncludesTheExactDistance) {
    HandFrame h;
    h.addFiducial(3, 4, 100);    // 5 mm from the first marker: exactly the limit
    h.addFiducial(3, 4, 100.5f); // just beyond
    h.addFiducial(0, 0, 100);    // at the first marker
    h.addFiducial(200, 0, 100);  // at the second marker
    h.addFiducial(50, 50, 50);   // near nothing
    h.addMarker(7, {2}, 0, 0, 100);
    h.addMarker(8, {}, 200, 0, 100);
    AtracsysFiducialSelection s(256, 16);

    s.assignOwners(h.frame(), false);
    s.selectNearMarkers(h.frame(), 5.0);
    EXPECT_EQ(s.selected(), (std::vector<std::uint32_t>{0, 2, 3}));

    s.assignOwners(h.frame(), false);
    s.selectNearMarkers(h.frame(), std::nextafter(5.0, 0.0));
    EXPECT_EQ(s.selected(), (std::vector<std::uint32_t>{2, 3}));

    // A fiducial near two markers is selected once.
    s.assignOwners(h.frame(), false);
    s.selectNearMarkers(h.frame(), 1000.0);
    EXPECT_EQ(s.selected(), (std::vector<std::uint32_t>{0, 1, 2, 3, 4}));
}

TEST(FiducialSelection, FiducialsDataNamesOwnersInsideTheFrameAndCountsPixelsAtTheLeftIndex) {
    HandFrame h;
    for (int i = 0; i < 4; ++i)
        h.addFiducial(0, 0, static_cast<float>(500 + i));
    h.addMarker(1, {0});    // id 1 is a valid marker position: names marker 1
    h.addMarker(1200, {1}); // id 1200 is not: names itself
    h.addMarker(0, {2});    // id 0: names marker 0
    // Left and right indices differ: both pixel counts are taken at the left index.
    const std::uint32_t indices[4][2] = {{2, 0}, {0, 1}, {1, 2}, {7, 0}};
    for (int i = 0; i < 4; ++i) {
        h.fiducials[i].leftIndex = indices[i][0];
        h.fiducials[i].rightIndex = indices[i][1];
        h.fiducials[i].probability = 0.5f + 0.125f * static_cast<float>(i);
    }
    ftkRawData left[3] = {}, right[3] = {};
    for (std::uint32_t k = 0; k < 3; ++k) {
        left[k].pixelsCount = 10 + k;
        right[k].pixelsCount = 20 + k;
    }
    ftkFrameQuery frame = h.frame();
    frame.rawDataLeft = left;
    frame.rawDataLeftCount = 3;
    frame.rawDataRight = right;
    frame.rawDataRightCount = 3;
    const std::vector<Kestrion::TrackingInstrument> instruments = {
        Kestrion::TrackingInstrument(Kestrion::TrackerID("atracsys-0")),
        Kestrion::TrackingInstrument(Kestrion::TrackerID("atracsys-1200"))};

    Kestrion::SpryTrack::AtracsysFrameConverter converter(256, 16);
    converter.selectFiducials(frame, Kestrion::AtracsysTrackingStreamBase::AllFiducials, 100.0);
    const auto data = converter.fiducialsData(frame, instruments);
    const std::hash<std::string> hash;
    EXPECT_EQ(data->idHashes(), (std::vector<std::size_t>{hash("atracsys-1200"), hash("atracsys-1200"),
                                                          hash("atracsys-1"), hash("")}));
    // The index is that of the instrument of the listing marker itself (none for geometry 1).
    EXPECT_EQ(data->instrumentIndices(), (std::vector<std::uint32_t>{none, 1, 0, none}));
    EXPECT_EQ(data->leftPixelCounts(), (std::vector<std::uint32_t>{12, 10, 11, 0}));
    EXPECT_EQ(data->rightPixelCounts(), (std::vector<std::uint32_t>{22, 20, 21, 0}));
    EXPECT_EQ(data->probabilities(), (std::vector<double>{0.5, 0.625, 0.75, 0.875}));
    EXPECT_EQ(data->positions()[3], Eigen::Vector3d(0, 0, 503));
}

TEST(FiducialSelection, CorrespondencesBeyondTheFrameAreIgnored) {
    HandFrame h;
    h.addFiducial(0, 0, 500);
    h.addFiducial(10, 0, 500);
    h.addMarker(1000, {1, 2, 300, INVALID_ID, 0});
    AtracsysFiducialSelection s(256, 16);
    s.assignOwners(h.frame(), true);
    EXPECT_EQ(s.selected(), (std::vector<std::uint32_t>{1, 0}));
    EXPECT_EQ(s.owner(0), 1000u);

    // A frame without fiducial storage selects nothing.
    HandFrame empty;
    empty.addMarker(1000, {0, 1, 2});
    s.assignOwners(empty.frame(), true);
    s.selectAll(empty.frame());
    EXPECT_TRUE(s.selected().empty());
}

TEST(FiducialSelection, CountsBeyondTheReservedSizesAreCut) {
    HandFrame h;
    for (int i = 0; i < 3; ++i)
        h.addFiducial(0, 0, static_cast<float>(500 + i));
    h.addMarker(1000, {0, 1, 2});
    ftkFrameQuery claimed = h.frame();
    claimed.threeDFiducialsCount = 200; // more than the record holds
    claimed.threeDFiducialsVersionSize.ReservedSize = 3 * sizeof(ftk3DFiducial);
    claimed.markersCount = 16;
    claimed.markersVersionSize.ReservedSize = sizeof(ftkMarker) + sizeof(ftkMarker) / 2;
    claimed.rawDataLeftCount = 9; // no reserved size given: kept

    const ftkFrameQuery frame = Kestrion::SpryTrack::AtracsysFrameConverter::bounded(claimed);
    EXPECT_EQ(std::make_tuple(frame.threeDFiducialsCount, frame.markersCount, frame.rawDataLeftCount),
              std::make_tuple(3u, 1u, 9u));
}
