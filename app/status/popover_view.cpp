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

#include "app/status/health_figures.h"
#include "app/status/health_state.h"
#include "app/status/popover_icons.h"
#include "app/status/status_colors.h"
#include "app/status/symbol_icon.h"

namespace zev {
namespace {

constexpr int kPopoverWidth = 340;
constexpr int kScrollMaxHeight = 240;
constexpr int kLogsButtonWidth = 64;
constexpr int kAnchorGap = 4;
constexpr int kScreenMargin = 4;  // never flush against the screen's edge


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

// A label that takes the width its row gives it, whatever its text: a long
// daemon text is cut at the popover's edge instead of widening it.
QLabel* fitToRow(QLabel* label) {
  label->setSizePolicy(QSizePolicy::Ignored, label->sizePolicy().verticalPolicy());
  label->setMinimumWidth(1);
  return label;
}

QLabel* makeLabel(const QString& text, const QFont& font, const QString& objectName,
                  QWidget* parent) {
  auto* label = new QLabel(text, parent);
  // Nothing the daemon says may become a link, a picture or markup.
  label->setTextFormat(Qt::PlainText);
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
  ElidedLabel(QString text, QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setText(std::move(text));
  }
  QString text() const { return m_text; }
  void setText(QString text) {
    if (text == m_text) return;
    m_text = std::move(text);
    setToolTip(plainToolTip(m_text));
    setAccessibleName(m_text);  // painted, so screen readers need the name
    updateGeometry();
    update();
  }
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


// One camera's row, kept and refilled from poll to poll.
class CameraRow : public QWidget {
 public:
  CameraRow(const QFont& nameFont, const QFont& stateFont, QWidget* parent) : QWidget(parent) {
    setObjectName("cameraRow");
    auto* line = new QHBoxLayout(this);
    line->setContentsMargins(0, 4, 0, 4);
    line->setSpacing(7);
    m_liveDot = makeDot(systemGreen(), 7, "cameraDot", this);
    m_downDot = makeDot(secondaryTextColor(palette()), 7, "cameraDot", this);
    line->addWidget(m_liveDot);
    line->addWidget(m_downDot);
    m_name = new ElidedLabel(QString(), this);
    m_name->setObjectName("cameraName");
    m_name->setFont(nameFont);
    line->addWidget(m_name, 1);
    m_state = makeLabel(QString(), stateFont, "cameraState", this);
    line->addWidget(m_state);
  }

  void fill(const HealthCamera& camera) {
    setProperty("cameraId", shownText(camera.id));
    m_liveDot->setVisible(camera.live);
    m_downDot->setVisible(!camera.live);
    m_name->setText(shownText(camera.name));
    if (camera.live) {
      m_state->setText(frameAgeText(camera.frameAgeMS));
      setTextColor(m_state, secondaryTextColor(parentWidget()->palette()));
    } else {
      m_state->setText(QStringLiteral("down"));
      setTextColor(m_state, systemRed());
    }
  }

 private:
  QLabel* m_liveDot;
  QLabel* m_downDot;
  ElidedLabel* m_name;
  QLabel* m_state;
};

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
  m_layout->addWidget(buildHeader());
  m_layout->addWidget(makeDivider(this));
  m_layout->addWidget(buildSummary());
  m_layout->addWidget(buildUnreachable());
  m_layout->addWidget(buildActions());
  refresh();
  // A closed popover catches up when it next opens, not after every poll: the
  // launcher spends most of its life with the popover closed.
  connect(&m_state, &HealthState::changed, this, [this] {
    if (isVisible()) {
      refresh();
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

QString PopoverView::unreachableText() {
#ifdef Q_OS_MACOS
  return QStringLiteral("Daemon not responding on this Mac. It may be starting or stopped.");
#else
  return QStringLiteral("Daemon not responding on this computer. It may be starting or stopped.");
#endif
}

void PopoverView::refresh() {
  m_stale = false;
  // The widgets stay and only their contents change, so an open popover
  // neither blanks nor loses its scroll position when a poll lands.
  const std::optional<HealthSummary>& summary = m_state.summary();
  const HealthStatus status = m_state.status();
  for (int i = 0; i < 3; ++i) m_headerDots[i]->setVisible(i == int(status));
  m_headerDots[int(status)]->setProperty("status", QString::fromUtf8(rawValue(status).data()));
  if (summary) {
    m_headerTitle->setText(QStringLiteral("%1/%2 cameras live")
                               .arg(summary->liveCameras())
                               .arg(summary->totalCameras()));
    m_headerSubtitle->setText("zevd " + shownText(summary->version));
    refreshSummary(*summary);
  } else {
    m_headerTitle->setText(QStringLiteral("ZEV — unreachable"));
  }
  m_headerSubtitle->setVisible(summary.has_value());
  m_scroll->setVisible(summary.has_value());
  m_unreachable->setVisible(!summary);
  // Re-anchor an open popover: its height may have changed.
  if (isVisible()) {
    adjustSize();
    place();
  }
}

QWidget* PopoverView::buildHeader() {
  auto* header = new QWidget(this);
  header->setObjectName("header");
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(8);
  for (HealthStatus status : {HealthStatus::green, HealthStatus::yellow, HealthStatus::red}) {
    QLabel* dot = makeDot(statusColor(status), 10, "headerDot", header);
    dot->setProperty("status", QString::fromUtf8(rawValue(status).data()));
    m_headerDots[int(status)] = dot;
    row->addWidget(dot, 0, Qt::AlignVCenter | Qt::AlignLeft);
  }
  auto* lines = new QVBoxLayout;
  lines->setSpacing(1);
  m_headerTitle = makeLabel(QString(), sizedFont(font(), 13, QFont::DemiBold), "headerTitle", header);
  lines->addWidget(fitToRow(m_headerTitle));
  m_headerSubtitle = makeLabel(QString(), sizedFont(font(), 11), "headerSubtitle", header);
  setTextColor(m_headerSubtitle, secondaryTextColor(palette()));
  lines->addWidget(fitToRow(m_headerSubtitle));
  row->addLayout(lines, 1);
  return header;
}

QWidget* PopoverView::buildSummary() {
  auto* body = new QWidget;
  body->setObjectName("summary");
  auto* column = new QVBoxLayout(body);
  column->setContentsMargins(0, 0, 4, 0);
  column->setSpacing(8);

  // Figures, then the link on the right.
  auto* metrics = new QHBoxLayout;
  metrics->setSpacing(14);
  const char* captions[] = {"CPU", "RSS", "Thumb drops", "Worst"};
  for (int i = 0; i < 4; ++i) {
    m_metrics[i] = makeMetric(captions[i], QString(), body);
    metrics->addWidget(m_metrics[i]);
  }
  metrics->addStretch(1);
  column->addLayout(metrics);

  m_link = new QWidget(body);
  m_link->setObjectName("link");
  auto* link = new QHBoxLayout(m_link);
  link->setContentsMargins(0, 0, 0, 0);
  link->setSpacing(5);
  m_linkSymbol = new QLabel(m_link);
  m_linkSymbol->setObjectName("linkSymbol");
  m_linkText = makeLabel(QString(), sizedFont(font(), 11), "linkLabel", m_link);
  link->addWidget(m_linkSymbol);
  link->addWidget(fitToRow(m_linkText), 1);
  column->addWidget(m_link);

  m_degraded = new QFrame(body);
  m_degraded->setObjectName("degraded");
  auto* lines = new QVBoxLayout(m_degraded);
  lines->setContentsMargins(8, 6, 8, 6);
  lines->setSpacing(2);
  m_degraded->setAutoFillBackground(true);
  QPalette tinted = m_degraded->palette();
  QColor tint = systemYellow();
  tint.setAlphaF(0.16f);
  tinted.setColor(QPalette::Window, tint);
  m_degraded->setPalette(tinted);
  m_degradedTitle =
      makeLabel(QString(), sizedFont(font(), 11, QFont::DemiBold), "degradedTitle", m_degraded);
  lines->addWidget(m_degradedTitle);
  for (QLabel*& reason : m_degradedReasons) {
    reason = makeLabel(QString(), sizedFont(font(), 11), "degradedReason", m_degraded);
    reason->setWordWrap(true);
    lines->addWidget(reason);
  }
  column->addWidget(m_degraded);

  // Cameras, in the document's order, at most maxCameraRows of them.
  m_cameraList = new QVBoxLayout;
  m_cameraList->setSpacing(0);
  column->addLayout(m_cameraList);
  m_moreCameras = makeLabel(QString(), sizedFont(font(), 11), "moreCameras", body);
  setTextColor(m_moreCameras, secondaryTextColor(palette()));
  column->addWidget(m_moreCameras);

  m_scroll = new QScrollArea(this);
  m_scroll->setObjectName("contentScroll");
  m_scroll->setFrameShape(QFrame::NoFrame);
  m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  m_scroll->setWidgetResizable(true);
  m_scroll->setWidget(body);
  m_scroll->setFixedWidth(kPopoverWidth - 24);
  body->setFixedWidth(kPopoverWidth - 24 - m_scroll->verticalScrollBar()->sizeHint().width());
  return m_scroll;
}

void PopoverView::refreshSummary(const HealthSummary& summary) {
  const auto setMetric = [](QWidget* metric, const QString& caption, const QString& value) {
    metric->setObjectName("metric:" + caption);
    metric->findChild<QLabel*>("metricLabel")->setText(caption);
    metric->findChild<QLabel*>("metricValue")->setText(value);
  };
  setMetric(m_metrics[0], "CPU", cpuText(summary.cpuPercent));
  setMetric(m_metrics[1], "RSS", rssText(summary.rssBytes));
  setMetric(m_metrics[2], "Thumb drops", thumbDropText(summary.thumbDropRatio));
  if (summary.worstFrameAgeMS) {
    setMetric(m_metrics[3], "Worst", frameAgeText(*summary.worstFrameAgeMS));
  } else if (summary.newestFrameAgeMS >= 0) {
    setMetric(m_metrics[3], "Frame", frameAgeText(summary.newestFrameAgeMS));
  }
  m_metrics[3]->setVisible(summary.worstFrameAgeMS || summary.newestFrameAgeMS >= 0);

  m_link->setVisible(summary.defaultRoute.has_value());
  if (const auto& route = summary.defaultRoute) {
    const QColor color = route->isWarning() ? systemOrange() : secondaryTextColor(palette());
    m_linkSymbol->setProperty("kind", shownText(route->kind));
    // The symbol takes the link's colour only as a warning; otherwise the theme's.
    m_linkSymbol->setPixmap(linkSymbolPixmap(route->kind, palette(), 12, devicePixelRatioF(),
                                             route->isWarning() ? std::optional(color)
                                                                : std::nullopt));
    m_linkText->setText("Link: " + linkText(*route));
    m_linkText->setProperty("warning", route->isWarning());
    setTextColor(m_linkText, color);
  }

  m_degraded->setVisible(!summary.degradedReasons.empty());
  if (!summary.degradedReasons.empty()) {
    m_degradedTitle->setText(QStringLiteral("Degraded: %1 issues").arg(issueCountText(summary)));
    const auto visible = summary.visibleDegradedReasons();
    for (std::size_t i = 0; i < std::size(m_degradedReasons); ++i) {
      m_degradedReasons[i]->setVisible(i < visible.size());
      if (i < visible.size()) m_degradedReasons[i]->setText(shownText(visible[i]));
    }
  }

  const std::size_t shown = std::min(summary.cameras.size(), std::size_t(maxCameraRows));
  while (m_cameraRows.size() < shown) {
    auto* row = new CameraRow(sizedFont(font(), 12), sizedFont(font(), 11), m_moreCameras->parentWidget());
    m_cameraList->addWidget(row);
    m_cameraRows.push_back(row);
  }
  while (m_cameraRows.size() > shown) {
    delete m_cameraRows.back();
    m_cameraRows.pop_back();
  }
  for (std::size_t i = 0; i < shown; ++i) {
    static_cast<CameraRow*>(m_cameraRows[i])->fill(summary.cameras[i]);
  }
  const std::size_t more = summary.cameras.size() - shown;
  m_moreCameras->setVisible(more > 0);
  if (more > 0) m_moreCameras->setText(QStringLiteral("and %1 more").arg(more));

  // A maximum only: a short list takes just the room it needs.
  QWidget* body = m_scroll->widget();
  body->adjustSize();
  m_scroll->setFixedHeight(std::min(body->sizeHint().height(), kScrollMaxHeight));
}

QWidget* PopoverView::buildUnreachable() {
  m_unreachable = makeLabel(unreachableText(), sizedFont(font(), 12), "unreachableText", this);
  m_unreachable->setWordWrap(true);
  setTextColor(m_unreachable, secondaryTextColor(palette()));
  return m_unreachable;
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
  // The system's own symbol where there is one (macOS), else the icon
  // theme's or our drawing.
  QIcon icon = symbolIcon(QStringLiteral("arrow.triangle.2.circlepath"),
                          palette().color(QPalette::ButtonText), 16);
  if (icon.isNull()) icon = popoverIcon(PopoverIcon::refresh, palette());
  updates->setIcon(icon);
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
  if (m_stale) refresh();
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
