#include "app/logs/log_window_controller.h"

#include <QShortcut>
#include <QVBoxLayout>

#include "app/ports/app_activation.h"
#include "app/ports/workspace.h"

namespace zev {

LogWindowController::LogWindowController(const std::filesystem::path& homeDirectory,
                                         Workspace& workspace, AppActivation* activation,
                                         QObject* parent)
    : QObject(parent),
      m_model(std::make_unique<LogViewerModel>(homeDirectory / ".zevd" / "zevd.log",
                                               homeDirectory / ".zevd" / "zevd.err.log")),
      m_window(std::make_unique<QWidget>()),
      m_activation(activation) {
  m_window->setObjectName(QStringLiteral("logWindow"));
  m_window->setWindowTitle(QStringLiteral("ZEV Logs"));
  // Closing only hides the window: the default for a top-level widget
  // without Qt::WA_DeleteOnClose, and the launcher does not quit with it.
  m_window->setAttribute(Qt::WA_DeleteOnClose, false);
  m_window->setAttribute(Qt::WA_QuitOnClose, false);
  auto* layout = new QVBoxLayout(m_window.get());
  layout->setContentsMargins(0, 0, 0, 0);
  m_viewer = new LogViewer(
      *m_model, [&workspace](const std::filesystem::path& file) { workspace.revealFile(file); },
      m_window.get());
  layout->addWidget(m_viewer);
  m_window->resize(900, 600);
  // Ctrl+W (Command-W on macOS) closes, that is hides, the window.
  auto* close = new QShortcut(QKeySequence::Close, m_window.get());
  connect(close, &QShortcut::activated, m_window.get(), &QWidget::close);
}

LogWindowController::~LogWindowController() {
  // The window's widgets refer to the model: they go first.
  m_window.reset();
}

void LogWindowController::showWindow() {
  if (m_activation) m_activation->activate();
  if (m_window->isMinimized()) m_window->showNormal();
  m_window->show();
  m_window->raise();
  m_window->activateWindow();
}

}  // namespace zev
