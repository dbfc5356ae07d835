// tray_baseline: the smallest Qt tray application, the yardstick for the
// launcher's idle cost. It shows one green dot in the tray with a tooltip and
// does nothing else: no timer, no network, no popover.
#include <QApplication>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setQuitOnLastWindowClosed(false);
  QPixmap dot(64, 64);
  dot.fill(Qt::transparent);
  {
    QPainter painter(&dot);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(52, 199, 89));
    painter.drawEllipse(QRectF(6.4, 6.4, 51.2, 51.2));
  }
  QSystemTrayIcon tray{QIcon(dot)};
  tray.setToolTip(QStringLiteral("tray baseline"));
  tray.show();
  return app.exec();
}
