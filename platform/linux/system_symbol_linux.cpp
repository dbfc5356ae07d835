// Linux has no system symbol set; the callers fall back to the icon theme.
#include "app/ports/system_symbol.h"

namespace zev {

QImage systemSymbolImage(const QString& /*name*/, int /*pixels*/) { return {}; }

}  // namespace zev
