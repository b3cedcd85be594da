#include "host/apps/kestrion/TrackReferenceColumns.h"

#include "host/apps/kestrion/TrackTipColumns.h"

#include "host/stream/TrackingStreamData.h"

#include "host/stream/state/ReferencePoseData.h"
#include <cstdio>

namespace Kestrion::Cli {

std::string TrackReferenceColumns::csvHeader(bool tipColumns) {
    std::string header =
        ",ref_x_mm,ref_y_mm,ref_z_mm,ref_r11,ref_r12,ref_r13,ref_r21,ref_r22,ref_r23,ref_r31,"
        "ref_r32,ref_r33";
    if (tipColumns)
        header += ",ref_tip_x_mm,ref_tip_y_mm,ref_tip_z_mm";
    return header;
}

int TrackReferenceColumns::csvFields(char* out, std::size_t size, const TrackingStreamData& frame,
                                     const std::string& id, bool tipColumns) {
    const auto* poses = frame.component<ReferencePoseData>();
    const ReferencePoseData::Entry* entry = poses ? poses->find(id) : nullptr;
    const char* noTip = tipColumns ? ",,," : "";
    if (!entry)
        return std::snprintf(out, size, ",,,,,,,,,,,,%s", noTip);
    const Eigen::Matrix4d& m = entry->poseInReference;
    int length = std::snprintf(out, size, ",%.4f,%.4f,%.4f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f,%.7f",
                               m(0, 3), m(1, 3), m(2, 3), m(0, 0), m(0, 1), m(0, 2), m(1, 0), m(1, 1),
                               m(1, 2), m(2, 0), m(2, 1), m(2, 2));
    if (!tipColumns || length < 0 || static_cast<std::size_t>(length) >= size)
        return length;
    const int tip = entry->tipInReference
                        ? std::snprintf(out + length, size - static_cast<std::size_t>(length),
                                        ",%.4f,%.4f,%.4f", entry->tipInReference->x(),
                                        entry->tipInReference->y(), entry->tipInReference->z())
                        : std::snprintf(out + length, size - static_cast<std::size_t>(length), ",,,");
    return tip < 0 ? tip : length + tip;
}

std::string TrackReferenceColumns::referenceNote(const TrackingStreamData& frame, const std::string& id) {
    const auto* poses = frame.component<ReferencePoseData>();
    if (!poses || poses->referenceTracked() || id == poses->referenceId())
        return "";
    return "reference not seen";
}

std::string TrackReferenceColumns::tableHeader() {
    return TrackTipColumns::paddedCell("In reference x, y, z [mm]");
}

std::string TrackReferenceColumns::tableCell(const TrackingStreamData* frame, const std::string& id) {
    const auto* poses = frame ? frame->component<ReferencePoseData>() : nullptr;
    const ReferencePoseData::Entry* entry = poses ? poses->find(id) : nullptr;
    char text[96] = "-";
    if (poses && id == poses->referenceId())
        std::snprintf(text, sizeof text, "(reference)");
    else if (entry)
        std::snprintf(text, sizeof text, "%.2f, %.2f, %.2f", entry->poseInReference(0, 3),
                      entry->poseInReference(1, 3), entry->poseInReference(2, 3));
    return TrackTipColumns::paddedCell(text);
}

} // namespace Kestrion::Cli
