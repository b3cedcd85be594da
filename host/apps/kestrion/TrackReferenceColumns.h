#pragma once

#include <cstddef>
#include <string>

namespace Kestrion {
class TrackingStreamData;
struct TrackingInstrument;
} // namespace Kestrion

namespace Kestrion::Cli {

/// What `kestrion track` adds when a reference instrument is chosen (`--reference ID`): each other
/// instrument's pose, and its tip, in the reference's frame, taken from the frame's
/// ReferencePoseData. They are valid only when the instrument and the reference are both tracked
/// in that frame; otherwise the fields are empty, the table shows "-" and the status says
/// "reference not seen" when it is the reference that is missing.
class TrackReferenceColumns {
public:
    /// ",ref_x_mm,ref_y_mm,ref_z_mm,ref_r11,...,ref_r33", and ",ref_tip_x_mm,ref_tip_y_mm,ref_tip_z_mm"
    /// with tips.
    static std::string csvHeader(bool tipColumns);
    /// The instrument's fields in the frame (empty ones when not valid) into `out` of `size` bytes;
    /// the length written, as snprintf returns it.
    static int csvFields(char* out, std::size_t size, const TrackingStreamData& frame, const std::string& id,
                         bool tipColumns);

    /// "reference not seen" when the frame has a reference that is not tracked in it and `id` is
    /// another instrument; empty otherwise.
    static std::string referenceNote(const TrackingStreamData& frame, const std::string& id);

    /// The table's column title, and a cell with the position in the reference's frame ("x, y, z",
    /// or "-"), both of one width.
    static std::string tableHeader();
    static std::string tableCell(const TrackingStreamData* frame, const std::string& id);
};

} // namespace Kestrion::Cli
