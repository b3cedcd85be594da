#include "host/stream/CompoundStreamData.h"

namespace Kestrion {

CompoundStreamData::CompoundStreamData(std::shared_ptr<const StreamData> main,
                                       std::vector<std::shared_ptr<const StreamData>> subData)
    : StreamData(main ? main->stream() : nullptr, main ? main->arrivalTimestamp() : 0,
                 main ? main->deviceTimestamp() : 0)
    , m_main(std::move(main))
    , m_subData(std::move(subData)) {}

} // namespace Kestrion
