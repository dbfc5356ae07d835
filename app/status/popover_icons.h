// The popover's line icons: the Wi-Fi fan and the network socket beside the
// link line, and the refresh arrows of "check for updates". The desktop's
// icon theme provides them where it has them; otherwise they come from our
// own SVG files (app/status/icons, compiled in as resources), in the variant
// drawn for the palette: dark lines on a light window, light lines on a dark
// one. Both are rendered from the vector at the size and device-pixel ratio
// asked for, so they stay sharp at every scale.
#ifndef ZEV_APP_STATUS_POPOVER_ICONS_H_
#define ZEV_APP_STATUS_POPOVER_ICONS_H_

#include <QColor>
#include <QIcon>
#include <QPalette>
#include <QPixmap>
#include <optional>
#include <string_view>

namespace zev {

enum class PopoverIcon { wifi, wired, refresh };

// Our own drawing of `icon`, in the variant for `palette`'s window colour.
QIcon bundledPopoverIcon(PopoverIcon icon, const QPalette& palette);

// The theme's icon (network-wireless, network-wired, view-refresh), or ours.
QIcon popoverIcon(PopoverIcon icon, const QPalette& palette);

// The link line's symbol, `size` logical pixels square at `dpr`: the Wi-Fi
// fan for "wifi", the socket for any other kind. With a `tint` (the link's
// colour is data: orange for a slow link) it is our drawing with every line
// in that colour, whatever the theme has.
QPixmap linkSymbolPixmap(std::string_view kind, const QPalette& palette, int size, qreal dpr,
                         std::optional<QColor> tint);

}  // namespace zev

#endif  // ZEV_APP_STATUS_POPOVER_ICONS_H_
