// The visible lines of a LogViewerModel as a list model: one row per line
// that passes the filter, identified by its position (identical lines are
// separate rows). Rows refer to lines by their sequence number, so lines
// dropping out at the front or arriving at the end move no other row.
#ifndef ZEV_APP_LOGS_LOG_LINE_LIST_MODEL_H_
#define ZEV_APP_LOGS_LOG_LINE_LIST_MODEL_H_

#include <QAbstractListModel>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "core/logs/log_line.h"

namespace zev {

class LogViewerModel;

class LogLineListModel : public QAbstractListModel {
  Q_OBJECT

 public:
  enum Role {
    RawRole = Qt::UserRole + 1,  // the line as read
    TimestampRole,               // QString, or invalid when absent
    SeverityRole,                // upper-case severity, or invalid when absent
    SeverityValueRole,           // int(LogSeverity), or invalid
    CameraRole,                  // QString, or invalid when absent
  };

  explicit LogLineListModel(const LogViewerModel& model, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  // DisplayRole is the message; ToolTipRole and RawRole the raw line;
  // AccessibleTextRole the header and message read as one.
  QVariant data(const QModelIndex& index, int role) const override;

  // The line shown in `row` (0 <= row < rowCount()).
  const LogLine& lineAt(int row) const;

  // Called by the model. refilter: everything anew, after `change` (which
  // may replace the model's lines) has run inside the reset. dropBefore: rows of
  // lines numbered below `sequence` go (before the model lets them go).
  // appendFrom: the model's lines from `sequence` on are new; the ones that
  // pass the filter become rows at the end.
  void refilter(const std::function<void()>& change = {});
  void dropBefore(uint64_t sequence);
  void appendFrom(uint64_t sequence);

 private:
  void filterInto(uint64_t fromSequence, std::vector<uint64_t>& rows) const;

  const LogViewerModel& m_model;
  std::vector<uint64_t> m_rows;  // sequence numbers, ascending
};

}  // namespace zev

#endif  // ZEV_APP_LOGS_LOG_LINE_LIST_MODEL_H_
