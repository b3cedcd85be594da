#pragma once

#include <QMetaType>

#include <string>

// The host declares std::string as a Qt meta type once, here; plugins include this header
// rather than declaring it again. QtHelpers::registerMetaTypes() registers it at run time
// under the name "std::string" for queued calls.
Q_DECLARE_METATYPE(std::string)
