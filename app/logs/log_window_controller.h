// The log window: one per run, made on the first View Log, only hidden when
// closed (so the model and its filter choices survive), brought to the front
// on every later View Log.
#ifndef ZEV_APP_LOGS_LOG_WINDOW_CONTROLLER_H_
#define ZEV_APP_LOGS_LOG_WINDOW_CONTROLLER_H_

#include <QObject>
#include <filesystem>
#include <memory>

#include "app/logs/log_viewer.h"
#include "app/logs/log_viewer_model.h"

namespace zev {

class AppActivation;
class Workspace;

class LogWindowController : public QObject {
  Q_OBJECT

 public:
  // The window's files are <home>/.zevd/zevd.log and <home>/.zevd/zevd.err.log.
  // `workspace` and `activation` must outlive the controller.
  LogWindowController(const std::filesystem::path& homeDirectory, Workspace& workspace,
                      AppActivation* activation, QObject* parent = nullptr);
  ~LogWindowController() override;

  // Shows the window (its first showing starts a load), raised and active.
  void showWindow();

  QWidget* window() const { return m_window.get(); }
  LogViewer* viewer() const { return m_viewer; }
  LogViewerModel& model() { return *m_model; }

 private:
  std::unique_ptr<LogViewerModel> m_model;
  std::unique_ptr<QWidget> m_window;
  LogViewer* m_viewer = nullptr;
  AppActivation* m_activation;
};

}  // namespace zev

#endif  // ZEV_APP_LOGS_LOG_WINDOW_CONTROLLER_H_
