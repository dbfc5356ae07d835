#include "app/status/status_item_controller.h"

#include <QCursor>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <cmath>
#include <utility>

#include "app/status/popover_view.h"
#include "app/ports/app_activation.h"
#include "app/ports/status_item.h"
#include "app/ports/system_log.h"
#include "app/status/health_figures.h"
#include "app/status/status_colors.h"

namespace zev {
namespace {

// Trays draw icons from 16 to 48 pixels; a 64-pixel dot scales down cleanly.
constexpr qreal kItemImageScale = 6.4;

// A click on the item closes an open popover as a click outside it, and Qt
// then hands the same click on to the item (an XEmbed tray icon is one of our
// own windows): within this window such a click only closes.
constexpr qint64 kReopenGuardMS = 300;

// Set on a reply given up for its size.
constexpr const char* kTooLargeProperty = "zevTooLarge";

}  // namespace

StatusItemController::StatusItemController(std::unique_ptr<StatusItem> statusItem, QUrl baseURL,
                                           StatusItemActions actions, SystemLog& statusLog,
                                           AppActivation* activation, Clock clock, QObject* parent)
    : QObject(parent),
      m_statusItem(std::move(statusItem)),
      m_state(std::make_unique<HealthState>()),
      m_baseURL(std::move(baseURL)),
      m_session(std::make_unique<QNetworkAccessManager>()),
      m_actions(std::move(actions)),
      m_statusLog(statusLog),
      m_activation(activation),
      m_clock(std::move(clock)) {
  // The daemon listens on loopback: no application-wide proxy may ever carry
  // the polls away from it.
  m_session->setProxy(QNetworkProxy::NoProxy);
}

void StatusItemController::whenPopoverBuilt(std::function<void(PopoverView&)> setUp) {
  if (m_popover) {
    setUp(*m_popover);
  } else {
    m_popoverSetUps.push_back(std::move(setUp));
  }
}

PopoverView& StatusItemController::ensurePopover() {
  if (m_popover) return *m_popover;
  // Built on the first click, not at start-up: most runs never open it, and
  // its widgets, fonts and style are most of what a tray icon would cost.
  m_popover = std::make_unique<PopoverView>(
      *m_state, PopoverActions{
                    closingPopoverFirst(&StatusItemActions::onOpenWebUI),
                    [self = QPointer(this)] {
                      if (!self) return;
                      if (self->isPopoverShown()) self->m_popover->close();
                      self->confirmRestart();
                    },
                    closingPopoverFirst(&StatusItemActions::onViewLogs),
                    closingPopoverFirst(&StatusItemActions::onRevealLogs),
                    closingPopoverFirst(&StatusItemActions::onCheckUpdates),
                });
  connect(m_popover.get(), &PopoverView::closed, this, [this] {
    const std::optional<QRect> anchor = m_popover->anchor();
    if (anchor && anchor->contains(QCursor::pos())) {
      m_sincePopoverClosed.start();
    } else {
      m_sincePopoverClosed.invalidate();
    }
  });
  for (auto& setUp : std::exchange(m_popoverSetUps, {})) setUp(*m_popover);
  return *m_popover;
}

StatusItemController::~StatusItemController() {
  // Replies still in flight must not call back into a half-destroyed object:
  // cut them loose before the session goes.
  for (QNetworkReply* reply : m_session->findChildren<QNetworkReply*>()) {
    reply->disconnect(this);
    reply->abort();
  }
  if (m_popover) m_popover->disconnect(this);
  m_popover.reset();
}

std::function<void()> StatusItemController::closingPopoverFirst(
    std::function<void()> StatusItemActions::*action) {
  return [self = QPointer(this), action] {
    if (!self) return;
    if (self->isPopoverShown()) self->m_popover->close();
    // Copy: the action may replace or destroy the controller.
    const std::function<void()> callback = self->m_actions.*action;
    if (callback) callback();
  };
}

void StatusItemController::install() {
  if (m_statusItem && m_statusItem->hasButton()) {
    m_statusItem->setImage(dotImage(HealthStatus::red, kItemImageScale));
    m_statusItem->setClickHandler([self = QPointer(this)] {
      if (self) self->togglePopover();
    });
  }
  render(HealthStatus::red, std::nullopt);
  poll();

  m_timer = new QTimer(this);
  m_timer->setTimerType(Qt::CoarseTimer);
  m_timer->setInterval(m_pollInterval);
  // The timer belongs to this thread's event dispatcher, which also drives the
  // nested loops of menus and modal alerts, so polling goes on under them.
  connect(m_timer, &QTimer::timeout, this, [self = QPointer(this)] {
    if (self) self->poll();
  });
  m_timer->start();

  m_statusLog.info(
      ("status item installed; polling " + m_baseURL.toString(QUrl::FullyEncoded)).toStdString());
}

QUrl StatusItemController::healthURL() const {
  QUrl url = m_baseURL;
  QString path = url.path();
  if (!path.endsWith('/')) path += '/';
  url.setPath(path + QStringLiteral("api/health"));
  return url;
}

void StatusItemController::poll() {
  // Nothing of one poll may leak into the next: no cache (none is installed on
  // the manager either), no cookies, no stored credentials. Redirects are not
  // followed: the daemon answers on loopback itself, a redirect could only
  // lead the poll elsewhere, and a 3xx is not a 200, so it reads unreachable.
  QNetworkRequest request(healthURL());
  request.setTransferTimeout(int(m_requestTimeout.count()));
  request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
  request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
  request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
  request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
  request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                       QNetworkRequest::ManualRedirectPolicy);
  // Uncompressed: the size cap then bounds what is held, and no small
  // compressed answer can unpack into a huge one.
  request.setRawHeader("Accept-Encoding", "identity");
  QNetworkReply* reply = m_session->get(request);
  ++m_pollsStarted;
  // The transfer time-out above only notices silence; a daemon that trickles a
  // byte at a time never falls silent. The whole request has a deadline too.
  QTimer::singleShot(m_requestTimeout, reply, [reply] { reply->abort(); });
  // An answer larger than the cap is given up as soon as it says so, or as
  // soon as that much has arrived, so it never takes more memory than that.
  const auto giveUpWhenTooLarge = [reply, cap = maxResponseBytes](qint64 size) {
    if (size <= cap || reply->property(kTooLargeProperty).toBool()) return;
    reply->setProperty(kTooLargeProperty, true);
    reply->abort();
  };
  connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, giveUpWhenTooLarge] {
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid()) giveUpWhenTooLarge(length.toLongLong());
  });
  connect(reply, &QNetworkReply::downloadProgress, reply,
          [giveUpWhenTooLarge](qint64 received, qint64) { giveUpWhenTooLarge(received); });
  connect(reply, &QNetworkReply::finished, this, [self = QPointer(this), reply] {
    reply->deleteLater();
    if (self) self->applyReply(reply);
  });
}

void StatusItemController::applyReply(QNetworkReply* reply) {
  // Only a 200 with a body counts; every other outcome (another status, a
  // refused connection, a time-out, a document that does not decode) is "no
  // summary". The reason is deliberately not logged: the dot says it all. The
  // one exception is an answer over the size cap, which says something is
  // wrong with the daemon rather than that it is down: logged once, and again
  // only after an answer of a sensible size.
  std::optional<HealthSummary> summary;
  const bool tooLarge = reply->property(kTooLargeProperty).toBool();
  const QVariant code = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
  // Why there is no summary is kept for the notifications, which name it.
  m_lastHttpStatus = code.isValid() ? code.toInt() : 0;
  if (tooLarge) {
    m_lastFailure = PollFailure::undecodable;  // a body no reader should take
  } else if (reply->error() == QNetworkReply::NoError && code.isValid() && code.toInt() == 200) {
    const QByteArray body = reply->readAll();
    if (!body.isEmpty() && body.size() <= maxResponseBytes) {
      summary = decodeHealth(std::string_view(body.constData(), body.size()));
    }
    m_lastFailure = summary ? PollFailure::none : PollFailure::undecodable;
  } else if (code.isValid()) {
    m_lastFailure = PollFailure::httpStatus;
  } else if (reply->error() == QNetworkReply::OperationCanceledError ||
             reply->error() == QNetworkReply::TimeoutError) {
    m_lastFailure = PollFailure::timedOut;  // the deadline or the transfer time-out
  } else {
    m_lastFailure = PollFailure::unreachable;
  }
  if (tooLarge) {
    if (!m_toldTooLarge) {
      m_statusLog.error("health answer larger than " + std::to_string(maxResponseBytes) +
                        " bytes; ignored until the daemon answers sensibly again");
    }
    m_toldTooLarge = true;
  } else if (summary) {
    m_toldTooLarge = false;
  }
  const HealthStatus status = shownStatus(summary);
  const auto now = m_clock();
  m_state->update(summary, status, now);
  render(status, summary);
  emit pollApplied();
}

void StatusItemController::render(HealthStatus status,
                                  const std::optional<HealthSummary>& summary) {
  if (!m_statusItem || !m_statusItem->hasButton()) return;
  m_statusItem->setImage(dotImage(status, kItemImageScale));
  if (summary) {
    const QString count =
        QStringLiteral("%1/%2").arg(summary->liveCameras()).arg(summary->totalCameras());
    m_statusItem->setTitle(" " + count);
    m_statusItem->setToolTip(plainToolTip(
        QStringLiteral("ZEV — %1 cameras live · %2").arg(count, shownText(summary->version))));
  } else {
    m_statusItem->setTitle(QStringLiteral(" —"));
    m_statusItem->setToolTip(QStringLiteral("ZEV daemon unreachable"));
  }
}

QImage StatusItemController::dotImage(HealthStatus status, qreal scale) {
  const int side = int(std::ceil(10 * scale));
  QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  {
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(statusColor(status));
    painter.scale(side / 10.0, side / 10.0);
    painter.drawEllipse(QRectF(1, 1, 8, 8));
  }
  image.setDevicePixelRatio(side / 10.0);
  return image;
}

PollObservation StatusItemController::lastPollObservation() const {
  const std::optional<HealthSummary>& summary = m_state->summary();
  return {m_state->status(), summary ? &*summary : nullptr, m_lastFailure, m_lastHttpStatus};
}

bool StatusItemController::isPopoverShown() const { return m_popover && m_popover->isVisible(); }

void StatusItemController::togglePopover() {
  if (isPopoverShown()) {
    m_popover->close();
    return;
  }
  if (m_sincePopoverClosed.isValid() && m_sincePopoverClosed.elapsed() < kReopenGuardMS) {
    // This click is the one that just closed the popover from outside.
    m_sincePopoverClosed.invalidate();
    return;
  }
  poll();
  ensurePopover().showAnchored(m_statusItem ? m_statusItem->anchorRect() : std::nullopt);
}

void StatusItemController::confirmRestart() {
  if (m_activation) m_activation->activate();
  QPointer<StatusItemController> self(this);
  // A copy: the prompt may outlive this object (see below).
  const std::function<bool()> prompt = m_restartPrompt;
  const bool restart = prompt ? prompt() : runRestartAlert();
  // The alert runs a nested event loop; the controller may be gone after it.
  if (!self || !restart) return;
  const std::function<void()> onRestart = m_actions.onRestart;
  if (onRestart) onRestart();
}

bool StatusItemController::runRestartAlert() {
  QMessageBox alert;
  alert.setIcon(QMessageBox::Warning);
  alert.setWindowTitle(QStringLiteral("ZEV"));
  alert.setText(QStringLiteral("Restart ZEV daemon?"));
  alert.setInformativeText(
      QStringLiteral("Recording pauses for a few seconds while the daemon restarts."));
  QPushButton* restart = alert.addButton(QStringLiteral("Restart"), QMessageBox::AcceptRole);
  alert.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
  alert.setDefaultButton(restart);
  alert.setObjectName("restartAlert");
  alert.exec();
  return alert.clickedButton() == restart;
}

void StatusItemController::setPollIntervalForTesting(std::chrono::milliseconds interval) {
  m_pollInterval = interval;
  if (m_timer) m_timer->setInterval(interval);
}

void StatusItemController::setRequestTimeoutForTesting(std::chrono::milliseconds timeout) {
  m_requestTimeout = timeout;
}

void StatusItemController::setRestartPromptForTesting(std::function<bool()> prompt) {
  m_restartPrompt = std::move(prompt);
}

}  // namespace zev
