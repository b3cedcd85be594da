#include "host/stream/WorkingVolume.h"

#include <cmath>
#include <map>
#include <mutex>

namespace Kestrion {

namespace {

struct Registry {
    std::mutex mutex; // plugins register while loading, views look up on the GUI thread
    std::map<std::string, WorkingVolume> volumes;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

} // namespace

std::array<Eigen::Vector3d, 8> WorkingVolume::corners() const {
    std::array<Eigen::Vector3d, 8> result;
    const double depths[] = {nearMM, farMM};
    for (int face = 0; face < 2; ++face) {
        const double x = halfWidthPerMM * depths[face];
        const double y = halfHeightPerMM * depths[face];
        result[face * 4 + 0] = {-x, -y, depths[face]};
        result[face * 4 + 1] = {x, -y, depths[face]};
        result[face * 4 + 2] = {x, y, depths[face]};
        result[face * 4 + 3] = {-x, y, depths[face]};
    }
    return result;
}

bool WorkingVolume::contains(const Eigen::Vector3d& point) const {
    const double z = point.z();
    return z >= nearMM && z <= farMM && std::abs(point.x()) <= halfWidthPerMM * z &&
           std::abs(point.y()) <= halfHeightPerMM * z;
}

void WorkingVolume::registerDeviceType(const std::string& deviceType, const WorkingVolume& volume) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().volumes[deviceType] = volume;
}

std::optional<WorkingVolume> WorkingVolume::forDeviceType(const std::string& deviceType) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    const auto found = registry().volumes.find(deviceType);
    if (found == registry().volumes.end())
        return std::nullopt;
    return found->second;
}

} // namespace Kestrion
