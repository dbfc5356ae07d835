// The log window's content: the controls row (source, search, severity,
// camera, Refresh, Follow), the list of visible lines or the empty state, and
// the footer (status, Copy Filtered, Export…, Reveal).
//
// The list is a QListView over the model's LogLineListModel with a delegate
// that paints each row (header of timestamp, SEVERITY and camera, then the
// message in a monospaced font), so 5000 lines cost 5000 rows of a model, not
// 5000 widgets. Main thread.
#ifndef ZEV_APP_LOGS_LOG_VIEWER_H_
#define ZEV_APP_LOGS_LOG_VIEWER_H_

#include <QWidget>
#include <functional>

#include "app/logs/log_viewer_model.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QPushButton;
class QStackedWidget;

namespace zev {

class LogViewer : public QWidget {
  Q_OBJECT

 public:
  // `reveal` shows the file manager with a file selected.
  LogViewer(LogViewerModel& model, std::function<void(const std::filesystem::path&)> reveal,
            QWidget* parent = nullptr);

  LogViewerModel& model() { return m_model; }
  QListView* list() const { return m_list; }
  QLabel* statusLabel() const { return m_status; }

  // "Reveal in Finder" on macOS, "Reveal in File Manager" elsewhere.
  static QString revealTitle();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void buildControls();
  void updateCameras();
  void updateEmptyState();
  void updateFollowing();
  void scrollToNewestIfPinned();
  void showStatus(const QString& status);
  void announce(const QString& text);
  void copySelectedRows();

  LogViewerModel& m_model;
  std::function<void(const std::filesystem::path&)> m_reveal;
  QComboBox* m_source = nullptr;
  QLineEdit* m_search = nullptr;
  QComboBox* m_severity = nullptr;
  QComboBox* m_camera = nullptr;
  QPushButton* m_refresh = nullptr;
  QCheckBox* m_follow = nullptr;
  QStackedWidget* m_stack = nullptr;
  QListView* m_list = nullptr;
  QWidget* m_empty = nullptr;
  QLabel* m_status = nullptr;
  QPushButton* m_copy = nullptr;
  QPushButton* m_export = nullptr;
  QPushButton* m_revealButton = nullptr;
  bool m_pinned = true;  // the list shows its newest line and follows it
  bool m_pinnedBeforeReset = true;
  bool m_nameChangeSent = false;  // the status label's last name change is unannounced
};

}  // namespace zev

#endif  // ZEV_APP_LOGS_LOG_VIEWER_H_
