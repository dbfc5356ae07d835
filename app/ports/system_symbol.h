// The system's own symbols as pictures (macOS: SF Symbols), so that buttons
// look like the system's. Main thread.
#ifndef ZEV_APP_PORTS_SYSTEM_SYMBOL_H_
#define ZEV_APP_PORTS_SYSTEM_SYMBOL_H_

#include <QImage>
#include <QString>

namespace zev {

// The symbol called `name`, drawn opaque on transparent into a square of
// `pixels` (1 to 512), for the caller to colour; a null image when the
// system has no symbol of that name. Linux has no symbol set: always null
// there (platform/<os>/system_symbol_<os>).
QImage systemSymbolImage(const QString& name, int pixels);

}  // namespace zev

#endif  // ZEV_APP_PORTS_SYSTEM_SYMBOL_H_
