#pragma once

#include "simulator/src/FrameData.h"
#include "simulator/src/SensorImage.h"

#include <ftkInterface.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// The storage behind one ftkFrameQuery handed out by ftkCreateFrame: the record itself, its
/// containers with the capacities of ftkSetFrameOptions, and what the last fetch delivered.
/// Records are registered while alive, so a pointer that ftkCreateFrame did not return (or that
/// was already deleted) is recognised and refused.
class FrameRecord {
public:
    /// Allocates and registers a record with empty containers.
    static ftkFrameQuery* create();
    /// The record behind query, or null when query was not made by create() or was destroyed.
    static FrameRecord* find(const ftkFrameQuery* query);
    /// Unregisters and frees; false when query is not a live record.
    static bool destroy(ftkFrameQuery* query);
    /// Number of records currently alive in the process.
    static std::size_t liveCount();

    FrameRecord(const FrameRecord&) = delete;
    FrameRecord& operator=(const FrameRecord&) = delete;

    /// Allocates the containers (capacities in entries). Resets the counts and what was fetched.
    void setOptions(bool pixels, std::uint32_t events, std::uint32_t rawLeft, std::uint32_t rawRight,
                    std::uint32_t fiducials, std::uint32_t markers);

    /// Copies a produced frame and its markers into the containers: each one filled up to its capacity, with
    /// QS_ERR_OVERFLOW when the frame held more. Allocates only when the image size changes.
    /// `withImages` false: the camera sent no images with this frame. True: the images are copied
    /// from `frame` when it carries them, otherwise the device has drawn them into image().
    void fill(const FrameData& frame, const std::vector<ftkMarker>& markers, const DeliveryFaults& faults,
              bool withImages);

    ftkFrameQuery& query() { return m_query; }
    /// Pixel buffers were requested by ftkSetFrameOptions.
    bool wantsPixels() const { return m_pixels; }
    /// The left (0) or right (1) image buffer.
    SensorImage& image(int side) { return m_images[side]; }

    /// Device and frame index of the last delivery into this record (to wait for a newer one).
    std::uint64_t lastSerial() const { return m_lastSerial; }
    std::uint64_t lastIndex() const { return m_lastIndex; }
    bool hasDelivery() const { return m_hasDelivery; }
    void markDelivered(std::uint64_t serial, std::uint64_t index);

private:
    FrameRecord();
    static void replayStatuses(const FrameData& frame, ftkFrameQuery& q);

    ftkFrameQuery m_query{};
    ftkImageHeader m_header{};
    std::vector<ftkEvent> m_eventStorage;
    std::vector<ftkEvent*> m_events;
    std::vector<ftkRawData> m_rawLeft;
    std::vector<ftkRawData> m_rawRight;
    std::vector<ftk3DFiducial> m_fiducials;
    std::vector<ftkMarker> m_markers;
    bool m_pixels = false;
    SensorImage m_images[2];

    bool m_hasDelivery = false;
    std::uint64_t m_lastSerial = 0;
    std::uint64_t m_lastIndex = 0;
};

} // namespace Kestrion::Simulator
