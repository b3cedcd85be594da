#include "host/apps/kestrion/TrackTipColumns.h"

#include "host/calibration/ToolTipFileFormats.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStreamData.h"

#include <cstdio>

namespace Kestrion::Cli {

bool TrackTipColumns::anyTip(const std::vector<TrackConfiguration::Target>& targets) {
    for (const auto& target : targets) {
        const auto format = ToolTipFileFormats::instance().formatOf(target.path);
        std::string error; // the stream reports a file it cannot load
        const auto facts = format ? format->read(target.path, error) : std::nullopt;
        if (facts && facts->tip)
            return true;
    }
    return false;
}

const char* TrackTipColumns::csvHeader() {
    return ",tip_x_mm,tip_y_mm,tip_z_mm";
}

std::optional<Eigen::Vector3d> TrackTipColumns::tipOf(const TrackingStreamData& frame,
                                                      const std::string& id) {
    const auto* tips = frame.component<InstrumentTipData>();
    const InstrumentTipData::Entry* entry = tips ? tips->find(id) : nullptr;
    if (!entry)
        return std::nullopt;
    return entry->tipInCamera;
}

int TrackTipColumns::csvFields(char* out, std::size_t size, const TrackingStreamData& frame,
                               const std::string& id) {
    const std::optional<Eigen::Vector3d> tip = tipOf(frame, id);
    if (!tip)
        return std::snprintf(out, size, ",,,");
    return std::snprintf(out, size, ",%.4f,%.4f,%.4f", tip->x(), tip->y(), tip->z());
}

std::string TrackTipColumns::paddedCell(const char* text) {
    char cell[128];
    std::snprintf(cell, sizeof cell, "  %-26s", text);
    return cell;
}

std::string TrackTipColumns::tableHeader() {
    return paddedCell("Tip x, y, z [mm]");
}

std::string TrackTipColumns::tableCell(const std::optional<Eigen::Vector3d>& tip) {
    char text[96] = "-";
    if (tip)
        std::snprintf(text, sizeof text, "%.2f, %.2f, %.2f", tip->x(), tip->y(), tip->z());
    return paddedCell(text);
}

} // namespace Kestrion::Cli
