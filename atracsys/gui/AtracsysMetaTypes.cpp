#include "atracsys/gui/AtracsysMetaTypes.h"

#include "host/lib/widgets/QtHelpers.h"
#include "host/stream/TrackingInstrument.h"

#include <QList>
#include <QMetaType>

namespace Kestrion {

void registerAtracsysMetaTypes() {
    qRegisterMetaType<TrackingInstrument>("TrackingInstrument");
    qRegisterMetaType<QList<TrackingInstrument>>("QList<TrackingInstrument>");
    QtHelpers::registerMetaTypes();
}

} // namespace Kestrion
