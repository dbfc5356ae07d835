#include "app/status/popover_view.h"

#include <QAction>
#include <QCursor>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHideEvent>
#include <QIcon>
#include <QLabel>
#include <QMenu>
#include <QPaintEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/status/health_state.h"
#include "app/status/popover_icons.h"
#include "app/status/status_colors.h"

namespace zev {
namespace {

constexpr int kPopoverWidth = 340;
constexpr int kScrollMaxHeight = 240;
constexpr int kLogsButtonWidth = 64;
constexpr int kAnchorGap = 4;
constexpr int kScreenMargin = 4;  // never flush against the screen's edge

QString qs(const std::string& text) { return QString::fromStdString(text); }

QFont sizedFont(const QFont& base, qreal pointSize, QFont::Weight weight = QFont::Normal) {
  QFont font = base;
  font.setPointSizeF(pointSize);
  font.setWeight(weight);
  return font;
}

void setTextColor(QWidget* widget, const QColor& color) {
  QPalette palette = widget->palette();
  palette.setColor(QPalette::WindowText, color);
  palette.setColor(QPalette::Text, color);
  widget->setPalette(palette);
}

QLabel* makeLabel(const QString& text, const QFont& font, const QString& objectName,
                  QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setFont(font);
  label->setObjectName(objectName);
  return label;
}

// A filled circle of `diameter` pixels, as a label's picture.
QLabel* makeDot(const QColor& color, int diameter, const QString& objectName, QWidget* parent) {
  const qreal dpr = parent ? parent->devicePixelRatioF() : 1.0;
  QPixmap pixmap(QSize(diameter, diameter) * dpr);
  pixmap.setDevicePixelRatio(dpr);
  pixmap.fill(Qt::transparent);
  {
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(0, 0, diameter, diameter));
  }
  auto* label = new QLabel(parent);
  label->setPixmap(pixmap);
  label->setFixedSize(diameter, diameter);
  label->setObjectName(objectName);
  label->setProperty("dotColor", color);
  return label;
}

// A single-line label that elides on the right instead of growing or
// wrapping: long camera names must not widen the popover.
class ElidedLabel : public QWidget {
 public:
  ElidedLabel(QString text, QWidget* parent) : QWidget(parent), m_text(std::move(text)) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setToolTip(m_text);
    setAccessibleName(m_text);  // painted, so screen readers need the name
  }
  QString text() const { return m_text; }
  QSize sizeHint() const override {
    const QFontMetrics metrics(font());
    return {std::min(metrics.horizontalAdvance(m_text), 160), metrics.height()};
  }
  QSize minimumSizeHint() const override { return {20, QFontMetrics(font()).height()}; }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    const QString shown = fontMetrics().elidedText(m_text, Qt::ElideRight, width());
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, shown);
  }

 private:
  QString m_text;
};

QWidget* makeMetric(const QString& label, const QString& value, QWidget* parent) {
  auto* box = new QWidget(parent);
  box->setObjectName("metric:" + label);
  auto* column = new QVBoxLayout(box);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(1);
  auto* caption = makeLabel(label, sizedFont(parent->font(), 9), "metricLabel", box);
  setTextColor(caption, secondaryTextColor(parent->palette()));
  auto* figure = makeLabel(value, sizedFont(parent->font(), 11, QFont::Medium), "metricValue", box);
  column->addWidget(caption);
  column->addWidget(figure);
  return box;
}

QFrame* makeDivider(QWidget* parent) {
  auto* line = new QFrame(parent);
  line->setFrameShape(QFrame::HLine);
  line->setFrameShadow(QFrame::Plain);
  line->setObjectName("divider");
  QPalette palette = line->palette();
  palette.setColor(QPalette::WindowText, secondaryTextColor(palette).lighter(130));
  line->setPalette(palette);
  return line;
}

}  // namespace

PopoverView::PopoverView(const HealthState& state, PopoverActions actions, QWidget* parent)
    : QWidget(parent, Qt::Popup | Qt::FramelessWindowHint),
      m_state(state),
      m_actions(std::move(actions)) {
  setObjectName("popover");
  setFixedWidth(kPopoverWidth);
  setAutoFillBackground(true);
  m_layout = new QVBoxLayout(this);
  m_layout->setContentsMargins(12, 12, 12, 10);
  m_layout->setSpacing(8);
  m_layout->setSizeConstraint(QLayout::SetFixedSize);
  m_layout->addWidget(buildActions());
  rebuild();
  // A closed popover is rebuilt when it next opens, not after every poll: the
  // launcher spends most of its life with the popover closed.
  connect(&m_state, &HealthState::changed, this, [this] {
    if (isVisible()) {
      rebuild();
    } else {
      m_stale = true;
    }
  });
}

PopoverView::~PopoverView() = default;

QString PopoverView::revealLogsTitle() {
#ifdef Q_OS_MACOS
  return QStringLiteral("Reveal in Finder");
#else
  return QStringLiteral("Reveal in File Manager");
#endif
}

void PopoverView::rebuild() {
  m_stale = false;
  // Everything but the action row is rebuilt: the content is a pure function
  // of the state, and rebuilding keeps it that way.
  auto* content = new QWidget(this);
  content->setObjectName("content");
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(8);
  column->addWidget(buildHeader());
  column->addWidget(makeDivider(content));
  column->addWidget(m_state.summary() ? buildSummary() : buildUnreachable());

  if (m_content) {
    delete m_layout->replaceWidget(m_content, content);
    delete m_content;
  } else {
    m_layout->insertWidget(0, content);
  }
  m_content = content;
  // Re-anchor an open popover: its height may have changed.
  if (isVisible()) place();
}

QWidget* PopoverView::buildHeader() {
  auto* header = new QWidget(this);
  header->setObjectName("header");
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(8);
  auto* dot = makeDot(statusColor(m_state.status()), 10, "headerDot", header);
  dot->setProperty("status", QString::fromUtf8(rawValue(m_state.status()).data()));
  row->addWidget(dot, 0, Qt::AlignTop | Qt::AlignLeft);
  // Keep the dot level with the first line of text.
  row->setAlignment(dot, Qt::AlignVCenter);

  auto* lines = new QVBoxLayout;
  lines->setSpacing(1);
  const QFont title = sizedFont(font(), 13, QFont::DemiBold);
  if (const auto& summary = m_state.summary()) {
    lines->addWidget(makeLabel(QStringLiteral("%1/%2 cameras live")
                                   .arg(summary->liveCameras())
                                   .arg(summary->totalCameras()),
                               title, "headerTitle", header));
    auto* second =
        makeLabel("zevd " + qs(summary->version), sizedFont(font(), 11), "headerSubtitle", header);
    setTextColor(second, secondaryTextColor(palette()));
    lines->addWidget(second);
  } else {
    lines->addWidget(makeLabel(QStringLiteral("ZEV — unreachable"), title, "headerTitle", header));
  }
  row->addLayout(lines, 1);
  return header;
}

QWidget* PopoverView::buildSummary() {
  const HealthSummary& summary = *m_state.summary();
  auto* body = new QWidget;
  body->setObjectName("summary");
  auto* column = new QVBoxLayout(body);
  column->setContentsMargins(0, 0, 4, 0);
  column->setSpacing(8);

  // Figures, then the link on the right.
  auto* metrics = new QHBoxLayout;
  metrics->setSpacing(14);
  metrics->addWidget(makeMetric("CPU", QString::asprintf("%.0f%%", summary.cpuPercent), body));
  metrics->addWidget(
      makeMetric("RSS", QString::asprintf("%.1f GB", double(summary.rssBytes) / 1e9), body));
  metrics->addWidget(
      makeMetric("Thumb drops", QString::asprintf("%.0f%%", summary.thumbDropRatio * 100), body));
  if (summary.worstFrameAgeMS) {
    metrics->addWidget(makeMetric("Worst", qs(summary.worstFrameAgeText()), body));
  } else if (summary.newestFrameAgeMS >= 0) {
    metrics->addWidget(
        makeMetric("Frame", QStringLiteral("%1 ms").arg(summary.newestFrameAgeMS), body));
  }
  metrics->addStretch(1);
  column->addLayout(metrics);

  if (const auto& route = summary.defaultRoute) {
    const QColor color = route->isWarning() ? systemOrange() : secondaryTextColor(palette());
    auto* link = new QHBoxLayout;
    link->setSpacing(5);
    auto* symbol = new QLabel(body);
    symbol->setObjectName("linkSymbol");
    symbol->setProperty("kind", qs(route->kind));
    // The symbol takes the link's colour only as a warning; otherwise the theme's.
    symbol->setPixmap(linkSymbolPixmap(route->kind, palette(), 12, devicePixelRatioF(),
                                       route->isWarning() ? std::optional(color) : std::nullopt));
    auto* text =
        makeLabel("Link: " + qs(route->summaryText()), sizedFont(font(), 11), "linkLabel", body);
    text->setProperty("warning", route->isWarning());
    setTextColor(text, color);
    link->addWidget(symbol);
    link->addWidget(text);
    link->addStretch(1);
    column->addLayout(link);
  }

  if (!summary.degradedReasons.empty()) {
    auto* block = new QFrame(body);
    block->setObjectName("degraded");
    auto* lines = new QVBoxLayout(block);
    lines->setContentsMargins(8, 6, 8, 6);
    lines->setSpacing(2);
    block->setAutoFillBackground(true);
    QPalette palette = block->palette();
    QColor tint = systemYellow();
    tint.setAlphaF(0.16f);
    palette.setColor(QPalette::Window, tint);
    block->setPalette(palette);
    lines->addWidget(
        makeLabel(QStringLiteral("Degraded: %1 issues").arg(summary.degradedIssueCount()),
                  sizedFont(font(), 11, QFont::DemiBold), "degradedTitle", block));
    for (const std::string& reason : summary.visibleDegradedReasons()) {
      auto* line = makeLabel(qs(reason), sizedFont(font(), 11), "degradedReason", block);
      line->setWordWrap(true);
      lines->addWidget(line);
    }
    column->addWidget(block);
  }

  // Cameras, in the document's order.
  auto* cameras = new QVBoxLayout;
  cameras->setSpacing(0);
  const QFont nameFont = sizedFont(font(), 12);
  const QFont stateFont = sizedFont(font(), 11);
  for (const HealthCamera& camera : summary.cameras) {
    auto* row = new QWidget(body);
    row->setObjectName("cameraRow");
    row->setProperty("cameraId", qs(camera.id));
    auto* line = new QHBoxLayout(row);
    line->setContentsMargins(0, 4, 0, 4);
    line->setSpacing(7);
    line->addWidget(
        makeDot(camera.live ? systemGreen() : secondaryTextColor(palette()), 7, "cameraDot", row));
    auto* name = new ElidedLabel(qs(camera.name), row);
    name->setObjectName("cameraName");
    name->setFont(nameFont);
    line->addWidget(name, 1);
    QLabel* state;
    if (camera.live) {
      state =
          makeLabel(QStringLiteral("%1 ms").arg(camera.frameAgeMS), stateFont, "cameraState", row);
      setTextColor(state, secondaryTextColor(palette()));
    } else {
      state = makeLabel(QStringLiteral("down"), stateFont, "cameraState", row);
      setTextColor(state, systemRed());
    }
    line->addWidget(state);
    cameras->addWidget(row);
  }
  column->addLayout(cameras);

  auto* scroll = new QScrollArea;
  scroll->setObjectName("contentScroll");
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll->setWidgetResizable(true);
  scroll->setWidget(body);
  scroll->setFixedWidth(kPopoverWidth - 24);
  body->setFixedWidth(kPopoverWidth - 24 - scroll->verticalScrollBar()->sizeHint().width());
  // A maximum only: a short list takes just the room it needs.
  scroll->setFixedHeight(std::min(body->sizeHint().height(), kScrollMaxHeight));
  scroll->setMaximumHeight(kScrollMaxHeight);
  return scroll;
}

QWidget* PopoverView::buildUnreachable() {
  auto* text =
      makeLabel(QStringLiteral("Daemon not responding on this Mac. It may be starting or stopped."),
                sizedFont(font(), 12), "unreachableText", this);
  text->setWordWrap(true);
  setTextColor(text, secondaryTextColor(palette()));
  return text;
}

QWidget* PopoverView::buildActions() {
  auto* actions = new QWidget(this);
  actions->setObjectName("actions");
  auto* row = new QHBoxLayout(actions);
  row->setContentsMargins(0, 2, 0, 0);
  row->setSpacing(6);

  auto call = [](const std::function<void()>& action) {
    return [&action] {
      if (action) action();
    };
  };

  auto* openWebUI = new QPushButton(QStringLiteral("Open Web UI"), actions);
  openWebUI->setObjectName("openWebUIButton");
  connect(openWebUI, &QPushButton::clicked, this, call(m_actions.onOpenWebUI));
  row->addWidget(openWebUI);

  auto* restart = new QPushButton(QStringLiteral("Restart"), actions);
  restart->setObjectName("restartButton");
  connect(restart, &QPushButton::clicked, this, call(m_actions.onRestart));
  row->addWidget(restart);

  auto* logs = new QToolButton(actions);
  logs->setObjectName("logsButton");
  logs->setText(QStringLiteral("Logs"));
  logs->setPopupMode(QToolButton::InstantPopup);
  logs->setToolButtonStyle(Qt::ToolButtonTextOnly);
  logs->setFixedWidth(kLogsButtonWidth);
  logs->setFixedHeight(openWebUI->sizeHint().height());
  auto* menu = new QMenu(logs);
  menu->setObjectName("logsMenu");
  QAction* viewLog = menu->addAction(QStringLiteral("View Log"));
  viewLog->setObjectName("viewLogAction");
  connect(viewLog, &QAction::triggered, this, call(m_actions.onViewLogs));
  QAction* reveal = menu->addAction(revealLogsTitle());
  reveal->setObjectName("revealLogsAction");
  connect(reveal, &QAction::triggered, this, call(m_actions.onRevealLogs));
  logs->setMenu(menu);
  row->addWidget(logs);

  row->addStretch(1);

  auto* updates = new QToolButton(actions);
  updates->setObjectName("checkUpdatesButton");
  updates->setIcon(popoverIcon(PopoverIcon::refresh, palette()));
  updates->setIconSize(QSize(16, 16));
  updates->setAutoRaise(true);
  updates->setToolTip(QStringLiteral("Check for Updates"));
  updates->setAccessibleName(QStringLiteral("Check for Updates"));
  connect(updates, &QToolButton::clicked, this, call(m_actions.onCheckUpdates));
  row->addWidget(updates);
  return actions;
}

void PopoverView::showAnchored(std::optional<QRect> anchor) {
  m_anchor = anchor;
  if (m_stale) rebuild();
  adjustSize();
  place();
  show();
  raise();
  activateWindow();
}

void PopoverView::place() {
  const QPoint cursor = QCursor::pos();
  const QPoint probe = m_anchor ? m_anchor->center() : cursor;
  QScreen* screen = QGuiApplication::screenAt(probe);
  if (!screen) screen = QGuiApplication::primaryScreen();
  const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
  move(popoverPosition(sizeHint().expandedTo(size()), m_anchor, cursor, area));
}

void PopoverView::paintEvent(QPaintEvent* event) {
  QWidget::paintEvent(event);
  // A hairline edge: the popup has no frame and no shadow of its own.
  QPainter painter(this);
  QColor edge = palette().color(QPalette::WindowText);
  edge.setAlphaF(0.25f);
  painter.setPen(edge);
  painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

void PopoverView::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  emit closed();
}

void PopoverView::setNotificationsToggle(bool checked, std::function<void(bool)> onToggled) {
  auto* menu = findChild<QMenu*>(QStringLiteral("logsMenu"));
  if (!menu) return;
  auto* toggle = menu->findChild<QAction*>(QStringLiteral("notificationsAction"));
  if (!toggle) {
    menu->addSeparator();
    toggle = menu->addAction(QStringLiteral("Desktop Notifications"));
    toggle->setObjectName(QStringLiteral("notificationsAction"));
    toggle->setCheckable(true);
  }
  toggle->disconnect(this);
  toggle->setChecked(checked);
  connect(toggle, &QAction::toggled, this, [onToggled = std::move(onToggled)](bool on) {
    if (onToggled) onToggled(on);
  });
}

QPoint popoverPosition(QSize size, std::optional<QRect> anchor, QPoint cursor, QRect screen) {
  const bool anchored = anchor && anchor->isValid() && !anchor->isEmpty();
  const QRect target = anchored ? *anchor : QRect(cursor, QSize(1, 1));
  int x = target.center().x() - size.width() / 2;
  int y = target.bottom() + 1 + kAnchorGap;
  if (y + size.height() > screen.bottom() + 1) {
    const int above = target.top() - kAnchorGap - size.height();
    if (above >= screen.top()) y = above;
  }
  const QRect inner = screen.adjusted(kScreenMargin, 0, -kScreenMargin, 0);
  x = std::clamp(x, inner.left(), std::max(inner.left(), inner.right() + 1 - size.width()));
  y = std::clamp(y, inner.top(), std::max(inner.top(), inner.bottom() + 1 - size.height()));
  return {x, y};
}

}  // namespace zev
