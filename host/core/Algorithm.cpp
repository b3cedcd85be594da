#include "host/core/Algorithm.h"

#include "host/core/Progress.h"

namespace Kestrion {

Algorithm::~Algorithm() = default;

ProgressTask Algorithm::addProgressTask(int steps, const std::string& description) const {
    if (Progress* target = progress())
        return target->addTask(steps, description);
    return ProgressTask(steps, description);
}

bool Algorithm::createCompatible(const DataList&, Algorithm** algorithm) {
    if (algorithm)
        *algorithm = nullptr;
    return false;
}

} // namespace Kestrion
