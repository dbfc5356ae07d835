#include "app/logs/log_line_list_model.h"

#include <algorithm>

#include "app/logs/log_viewer_model.h"

namespace zev {

namespace {

QString qtext(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

LogLineListModel::LogLineListModel(const LogViewerModel& model, QObject* parent)
    : QAbstractListModel(parent), m_model(model) {}

int LogLineListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

const LogLine& LogLineListModel::lineAt(int row) const {
  return m_model.lineAt(m_rows[static_cast<size_t>(row)]);
}

QVariant LogLineListModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
    return {};
  }
  const LogLine& line = lineAt(index.row());
  switch (role) {
    case Qt::DisplayRole:
      return qtext(line.message());
    case Qt::ToolTipRole:
    case RawRole:
      return qtext(line.raw());
    case TimestampRole:
      return line.timestamp() ? QVariant(qtext(*line.timestamp())) : QVariant();
    case SeverityRole:
      return line.severity() ? QVariant(qtext(rawValue(*line.severity())).toUpper()) : QVariant();
    case SeverityValueRole:
      return line.severity() ? QVariant(static_cast<int>(*line.severity())) : QVariant();
    case CameraRole:
      return line.camera() ? QVariant(qtext(*line.camera())) : QVariant();
    case Qt::AccessibleTextRole: {
      QStringList parts;
      if (line.timestamp()) parts << qtext(*line.timestamp());
      if (line.severity()) parts << qtext(rawValue(*line.severity())).toUpper();
      if (line.camera()) parts << qtext(*line.camera());
      parts << qtext(line.message());
      return parts.join(QLatin1Char(' '));
    }
    default:
      return {};
  }
}

void LogLineListModel::filterInto(uint64_t fromSequence, std::vector<uint64_t>& rows) const {
  const std::vector<LogLine>& lines = m_model.lines();
  const uint64_t first = m_model.firstSequence();
  const size_t from = fromSequence > first ? static_cast<size_t>(fromSequence - first) : 0;
  if (from >= lines.size()) return;
  const std::span<const LogLine> span(lines.data() + from, lines.size() - from);
  const std::vector<const LogLine*> kept = m_model.filter().apply(span);
  rows.reserve(rows.size() + kept.size());
  for (const LogLine* line : kept) {
    rows.push_back(first + static_cast<uint64_t>(line - lines.data()));
  }
}

void LogLineListModel::refilter(const std::function<void()>& change) {
  beginResetModel();
  if (change) change();
  m_rows.clear();
  filterInto(0, m_rows);
  endResetModel();
}

void LogLineListModel::dropBefore(uint64_t sequence) {
  const auto end = std::lower_bound(m_rows.begin(), m_rows.end(), sequence);
  const auto count = static_cast<int>(end - m_rows.begin());
  if (count == 0) return;
  beginRemoveRows(QModelIndex(), 0, count - 1);
  m_rows.erase(m_rows.begin(), end);
  endRemoveRows();
}

void LogLineListModel::appendFrom(uint64_t sequence) {
  std::vector<uint64_t> added;
  filterInto(sequence, added);
  if (added.empty()) return;
  const auto first = static_cast<int>(m_rows.size());
  beginInsertRows(QModelIndex(), first, first + static_cast<int>(added.size()) - 1);
  m_rows.insert(m_rows.end(), added.begin(), added.end());
  endInsertRows();
}

}  // namespace zev
