// Compiled with exactly the core library's include path and flags. It must not
// compile: core code has no access to Qt.
#include <QtCore/QObject>

#include "core/health/health_summary.h"
