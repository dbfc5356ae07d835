#include "app/logs/log_viewer.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QShortcut>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

#include "app/logs/log_line_list_model.h"
#include "core/logs/log_filter.h"

namespace zev {

namespace {

bool isDark(const QPalette& palette) {
  return palette.color(QPalette::Base).lightness() < 128;
}

// The severity's colour, readable on the list's background in light and dark
// palettes alike (each pair keeps at least 4.5:1 against white or #1e1e1e).
QColor severityColor(std::optional<int> severity, const QPalette& palette) {
  const bool dark = isDark(palette);
  if (!severity) return palette.color(QPalette::PlaceholderText);
  switch (static_cast<LogSeverity>(*severity)) {
    case LogSeverity::error:
      return dark ? QColor(0xff, 0x7b, 0x72) : QColor(0xb3, 0x1d, 0x28);
    case LogSeverity::warn:
      return dark ? QColor(0xe3, 0xb3, 0x41) : QColor(0x8a, 0x57, 0x00);
    case LogSeverity::info:
      return dark ? QColor(0x79, 0xc0, 0xff) : QColor(0x0b, 0x5c, 0xad);
    case LogSeverity::debug:
    case LogSeverity::all:
      break;
  }
  return palette.color(QPalette::PlaceholderText);
}

// Paints a row: a severity bar at the left edge, the header line (timestamp,
// SEVERITY in semibold and its colour, camera) in a caption font, and the
// message in the monospaced font below, elided at the right (the tool tip
// holds the whole line). Every row has the same height, so the view lays out
// 5000 rows without measuring them.
class LogRowDelegate : public QStyledItemDelegate {
 public:
  explicit LogRowDelegate(QObject* parent) : QStyledItemDelegate(parent) {
    m_caption = QApplication::font();
    m_caption.setPointSizeF(m_caption.pointSizeF() * 0.85);
    m_captionBold = m_caption;
    m_captionBold.setWeight(QFont::DemiBold);
    m_mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  }

  QSize sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const override {
    const int height = QFontMetrics(m_caption).height() + QFontMetrics(m_mono).height() + 2 * kPad + 2;
    return {400, height};
  }

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override {
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &background, painter, option.widget);

    const QPalette& palette = option.palette;
    const bool selected = option.state & QStyle::State_Selected;
    const QColor text = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor secondary =
        selected ? text : palette.color(QPalette::PlaceholderText);
    const QVariant severityValue = index.data(LogLineListModel::SeverityValueRole);
    const std::optional<int> severity =
        severityValue.isValid() ? std::optional<int>(severityValue.toInt()) : std::nullopt;
    const QColor accent = severityColor(severity, palette);

    painter->save();
    const QRect r = option.rect;
    painter->fillRect(QRect(r.left(), r.top() + 2, 3, r.height() - 4), accent);

    int x = r.left() + kPad + 4;
    const int right = r.right() - kPad;
    const QFontMetrics caption(m_caption);
    const int headerBaseline = r.top() + kPad + caption.ascent();
    auto drawHeaderPart = [&](const QString& part, const QFont& font, const QColor& color) {
      if (part.isEmpty() || x >= right) return;
      painter->setFont(font);
      painter->setPen(color);
      const QFontMetrics metrics(font);
      const QString shown = metrics.elidedText(part, Qt::ElideRight, right - x);
      painter->drawText(x, headerBaseline, shown);
      x += metrics.horizontalAdvance(shown) + kGap;
    };
    drawHeaderPart(index.data(LogLineListModel::TimestampRole).toString(), m_caption, secondary);
    drawHeaderPart(index.data(LogLineListModel::SeverityRole).toString(), m_captionBold,
                   selected ? text : accent);
    drawHeaderPart(index.data(LogLineListModel::CameraRole).toString(), m_caption, secondary);

    painter->setFont(m_mono);
    painter->setPen(text);
    const QFontMetrics mono(m_mono);
    const int messageLeft = r.left() + kPad + 4;
    // A line without header fields (free text on standard error) has its
    // message in the middle of the row rather than under an empty header.
    const bool noHeader = x == r.left() + kPad + 4;
    const int messageBaseline =
        noHeader ? r.top() + (r.height() - mono.height()) / 2 + mono.ascent()
                 : r.top() + kPad + caption.height() + 2 + mono.ascent();
    // Control characters from the file are shown, never interpreted.
    QString message = index.data(Qt::DisplayRole).toString();
    for (QChar& c : message) {
      if (c.category() == QChar::Other_Control) c = QChar(0xFFFD);
    }
    painter->drawText(messageLeft, messageBaseline,
                      mono.elidedText(message, Qt::ElideRight, right - messageLeft));
    painter->restore();
  }

 private:
  static constexpr int kPad = 4;
  static constexpr int kGap = 10;
  QFont m_caption;
  QFont m_captionBold;
  QFont m_mono;
};

QString severityTitle(LogSeverity severity) {
  const std::string_view raw = rawValue(severity);
  QString title = QString::fromLatin1(raw.data(), static_cast<qsizetype>(raw.size()));
  title[0] = title[0].toUpper();
  return title;
}

}  // namespace

QString LogViewer::revealTitle() {
#ifdef Q_OS_MACOS
  return QStringLiteral("Reveal in Finder");
#else
  return QStringLiteral("Reveal in File Manager");
#endif
}

LogViewer::LogViewer(LogViewerModel& model,
                     std::function<void(const std::filesystem::path&)> reveal, QWidget* parent)
    : QWidget(parent), m_model(model), m_reveal(std::move(reveal)) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(8, 8, 8, 8);
  buildControls();

  m_list = new QListView(this);
  m_list->setObjectName(QStringLiteral("logList"));
  m_list->setModel(m_model.visibleLines());
  m_list->setItemDelegate(new LogRowDelegate(m_list));
  m_list->setUniformItemSizes(true);
  m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
  m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
  m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  m_list->setAlternatingRowColors(true);
  m_list->setAccessibleName(QStringLiteral("Log lines"));
  m_list->setContextMenuPolicy(Qt::ActionsContextMenu);
  auto* copyRows = new QAction(QStringLiteral("Copy"), m_list);
  copyRows->setShortcut(QKeySequence::Copy);
  copyRows->setShortcutContext(Qt::WidgetShortcut);
  connect(copyRows, &QAction::triggered, this, &LogViewer::copySelectedRows);
  m_list->addAction(copyRows);

  m_empty = new QWidget(this);
  m_empty->setObjectName(QStringLiteral("emptyState"));
  auto* emptyLayout = new QVBoxLayout(m_empty);
  emptyLayout->addStretch();
  auto* emptyTitle = new QLabel(QStringLiteral("No matching log lines"), m_empty);
  emptyTitle->setObjectName(QStringLiteral("emptyTitle"));
  QFont titleFont = emptyTitle->font();
  titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
  titleFont.setWeight(QFont::DemiBold);
  emptyTitle->setFont(titleFont);
  auto* emptyText = new QLabel(QStringLiteral("Change the filters or refresh the selected log."),
                               m_empty);
  emptyText->setObjectName(QStringLiteral("emptyText"));
  for (QLabel* label : {emptyTitle, emptyText}) {
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignCenter);
    emptyLayout->addWidget(label);
  }
  emptyLayout->addStretch();

  m_stack = new QStackedWidget(this);
  m_stack->addWidget(m_list);
  m_stack->addWidget(m_empty);
  layout->addWidget(m_stack, 1);

  // Footer.
  auto* footer = new QHBoxLayout();
  m_status = new QLabel(this);
  m_status->setObjectName(QStringLiteral("status"));
  m_status->setTextFormat(Qt::PlainText);
  m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
  QFont caption = m_status->font();
  caption.setPointSizeF(caption.pointSizeF() * 0.85);
  m_status->setFont(caption);
  m_status->setForegroundRole(QPalette::PlaceholderText);
  footer->addWidget(m_status, 1);
  m_copy = new QPushButton(QStringLiteral("Copy Filtered"), this);
  m_copy->setObjectName(QStringLiteral("copyFiltered"));
  m_export = new QPushButton(QStringLiteral("Export…"), this);
  m_export->setObjectName(QStringLiteral("export"));
  m_revealButton = new QPushButton(revealTitle(), this);
  m_revealButton->setObjectName(QStringLiteral("reveal"));
  footer->addWidget(m_copy);
  footer->addWidget(m_export);
  footer->addWidget(m_revealButton);
  layout->addLayout(footer);

  connect(m_copy, &QPushButton::clicked, &m_model, &LogViewerModel::copyFiltered);
  connect(m_export, &QPushButton::clicked, &m_model, &LogViewerModel::exportFiltered);
  connect(m_revealButton, &QPushButton::clicked, this, [this] {
    if (m_reveal) m_reveal(m_model.currentURL());
  });

  // Model → view.
  connect(&m_model, &LogViewerModel::statusChanged, this, &LogViewer::showStatus);
  connect(&m_model, &LogViewerModel::announcement, this, &LogViewer::announce);
  connect(&m_model, &LogViewerModel::linesReplaced, this, [this] {
    updateCameras();
    m_pinned = true;
    scrollToNewestIfPinned();
  });
  connect(&m_model, &LogViewerModel::linesAppended, this, [this] {
    updateCameras();
    scrollToNewestIfPinned();
  });
  QAbstractItemModel* rows = m_model.visibleLines();
  connect(rows, &QAbstractItemModel::modelReset, this, &LogViewer::updateEmptyState);
  // A new filter resets the list, and with it the scroll position: a list
  // that followed the newest line goes on doing so.
  connect(rows, &QAbstractItemModel::modelAboutToBeReset, this,
          [this] { m_pinnedBeforeReset = m_pinned; });
  connect(rows, &QAbstractItemModel::modelReset, this, [this] {
    m_pinned = m_pinnedBeforeReset;
    scrollToNewestIfPinned();
  });
  connect(rows, &QAbstractItemModel::rowsInserted, this, &LogViewer::updateEmptyState);
  connect(rows, &QAbstractItemModel::rowsRemoved, this, &LogViewer::updateEmptyState);
  connect(&m_model, &LogViewerModel::sourceChanged, this, [this] {
    m_source->setCurrentIndex(m_model.source() == LogSource::daemon ? 0 : 1);
  });
  connect(&m_model, &LogViewerModel::filterChanged, this, [this] {
    if (m_search->text() != m_model.search()) m_search->setText(m_model.search());
    m_severity->setCurrentIndex(static_cast<int>(m_model.severity()));
    const int camera = m_camera->findData(m_model.camera());
    if (camera >= 0) m_camera->setCurrentIndex(camera);
  });
  // Scrolling up unpins; scrolling back to the bottom pins again.
  // The list lays its rows out later, so the scroll range grows after the
  // rows arrive: a pinned list follows the range.
  QScrollBar* scroll = m_list->verticalScrollBar();
  connect(scroll, &QScrollBar::valueChanged, this,
          [this, scroll](int value) { m_pinned = value >= scroll->maximum(); });
  connect(scroll, &QScrollBar::rangeChanged, this, [this, scroll](int, int maximum) {
    if (m_pinned && m_follow->isChecked()) scroll->setValue(maximum);
  });

  showStatus(m_model.status());
  updateCameras();
  updateEmptyState();
}

void LogViewer::buildControls() {
  auto* row = new QHBoxLayout();
  m_source = new QComboBox(this);
  m_source->setObjectName(QStringLiteral("source"));
  m_source->setAccessibleName(QStringLiteral("Log source"));
  for (LogSource source : allLogSources) m_source->addItem(rawValue(source));
  m_source->setCurrentIndex(m_model.source() == LogSource::daemon ? 0 : 1);
  m_source->setFixedWidth(180);
  connect(m_source, &QComboBox::activated, this, [this](int index) {
    const LogSource chosen = allLogSources[static_cast<size_t>(index)];
    if (chosen != m_model.source()) m_model.chooseSource(chosen);
  });

  m_search = new QLineEdit(this);
  m_search->setObjectName(QStringLiteral("search"));
  m_search->setPlaceholderText(QStringLiteral("Search logs"));
  m_search->setAccessibleName(QStringLiteral("Search logs"));
  m_search->setClearButtonEnabled(true);
  m_search->setFixedWidth(240);
  m_search->setText(m_model.search());
  connect(m_search, &QLineEdit::textChanged, &m_model, &LogViewerModel::setSearch);
  m_search->installEventFilter(this);

  m_severity = new QComboBox(this);
  m_severity->setObjectName(QStringLiteral("severity"));
  m_severity->setAccessibleName(QStringLiteral("Severity"));
  for (LogSeverity severity : allLogSeverities) m_severity->addItem(severityTitle(severity));
  m_severity->setCurrentIndex(static_cast<int>(m_model.severity()));
  connect(m_severity, &QComboBox::activated, this, [this](int index) {
    m_model.setSeverity(allLogSeverities[static_cast<size_t>(index)]);
  });

  m_camera = new QComboBox(this);
  m_camera->setObjectName(QStringLiteral("camera"));
  m_camera->setAccessibleName(QStringLiteral("Camera"));
  m_camera->setFixedWidth(220);
  connect(m_camera, &QComboBox::activated, this, [this](int index) {
    m_model.setCamera(m_camera->itemData(index).toString());
  });

  m_refresh = new QPushButton(QStringLiteral("Refresh"), this);
  m_refresh->setObjectName(QStringLiteral("refresh"));
  // Ctrl+R, which Qt maps to Command-R on macOS.
  m_refresh->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
  m_refresh->setToolTip(QStringLiteral("Reload the selected log (%1)")
                            .arg(m_refresh->shortcut().toString(QKeySequence::NativeText)));
  connect(m_refresh, &QPushButton::clicked, &m_model, &LogViewerModel::refresh);

  m_follow = new QCheckBox(QStringLiteral("Follow"), this);
  m_follow->setObjectName(QStringLiteral("follow"));
  m_follow->setToolTip(QStringLiteral("Show new lines as the daemon writes them"));
  m_follow->setChecked(true);
  connect(m_follow, &QCheckBox::toggled, this, [this](bool on) {
    updateFollowing();
    if (on) {
      m_pinned = true;
      scrollToNewestIfPinned();
    }
  });

  auto* find = new QShortcut(QKeySequence::Find, this);
  connect(find, &QShortcut::activated, this, [this] {
    m_search->setFocus(Qt::ShortcutFocusReason);
    m_search->selectAll();
  });

  row->addWidget(m_source);
  row->addWidget(m_search);
  row->addWidget(m_severity);
  row->addWidget(m_camera);
  row->addWidget(m_refresh);
  row->addWidget(m_follow);
  row->addStretch();
  static_cast<QVBoxLayout*>(layout())->addLayout(row);
}

bool LogViewer::eventFilter(QObject* watched, QEvent* event) {
  if (watched == m_search && event->type() == QEvent::KeyPress &&
      static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape && !m_search->text().isEmpty()) {
    m_search->clear();
    return true;
  }
  return QWidget::eventFilter(watched, event);
}

void LogViewer::updateCameras() {
  const std::vector<std::string> cameras =
      LogFilter::availableCameras(std::span<const LogLine>(m_model.lines()));
  QStringList names;
  names.reserve(static_cast<qsizetype>(cameras.size()));
  for (const std::string& camera : cameras) names << QString::fromStdString(camera);
  // The chosen camera stays listed even when the new lines lack it.
  if (!m_model.camera().isEmpty() && !names.contains(m_model.camera())) {
    names << m_model.camera();
  }
  QStringList current;
  for (int i = 1; i < m_camera->count(); ++i) current << m_camera->itemData(i).toString();
  if (current != names || m_camera->count() == 0) {
    m_camera->clear();
    m_camera->addItem(QStringLiteral("All cameras"), QString());
    for (const QString& name : names) m_camera->addItem(name, name);
  }
  const int index = m_camera->findData(m_model.camera());
  m_camera->setCurrentIndex(index >= 0 ? index : 0);
}

void LogViewer::updateEmptyState() {
  const bool any = m_model.visibleLines()->rowCount() > 0;
  m_stack->setCurrentWidget(any ? static_cast<QWidget*>(m_list) : m_empty);
  m_copy->setEnabled(any);
  m_export->setEnabled(any);
}

void LogViewer::updateFollowing() { m_model.setFollowing(m_follow->isChecked() && isVisible()); }

void LogViewer::scrollToNewestIfPinned() {
  if (m_pinned && m_follow->isChecked()) m_list->scrollToBottom();
}

void LogViewer::showStatus(const QString& status) {
  m_status->setText(status);
  const QString name = QStringLiteral("Log status: ") + status;
  // setAccessibleName tells assistive technology of a changed name itself.
  m_nameChangeSent = m_status->accessibleName() != name;
  m_status->setAccessibleName(name);
}

// Qt has no announcement event, so a status a screen reader should speak is
// sent as a change of the status label's accessible name (which the AT-SPI
// bridge passes on as object:property-change:accessible-name; see
// tools/a11y-check), again when the text repeats an earlier status, and as
// an alert on the label for platforms whose bridge speaks alerts.
void LogViewer::announce(const QString& text) {
  const QString name = QStringLiteral("Log status: ") + text;
  if (m_status->accessibleName() != name) showStatus(text);
  if (!m_nameChangeSent) {
    QAccessibleEvent changed(m_status, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&changed);
  }
  m_nameChangeSent = false;
  QAccessibleEvent alert(m_status, QAccessible::Alert);
  QAccessible::updateAccessibility(&alert);
}

void LogViewer::copySelectedRows() {
  QModelIndexList selected = m_list->selectionModel()->selectedRows();
  std::sort(selected.begin(), selected.end(),
            [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
  QStringList raws;
  for (const QModelIndex& index : selected) raws << index.data(LogLineListModel::RawRole).toString();
  QGuiApplication::clipboard()->setText(raws.join(QLatin1Char('\n')));
}

void LogViewer::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  updateFollowing();
  m_model.refresh();
}

void LogViewer::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  updateFollowing();
}

}  // namespace zev
