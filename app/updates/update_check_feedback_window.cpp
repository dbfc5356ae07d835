#include "app/updates/update_check_feedback_window.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace zev {
namespace {

// An update's version as people know it; untrusted text from the feed, cut
// to a sensible length.
QString versionText(const UpdateCheckFeedback& feedback) {
  if (!feedback.item) return QStringLiteral("A new version");
  const std::string& shown = feedback.item->displayVersionString.empty()
                                 ? feedback.item->versionString
                                 : feedback.item->displayVersionString;
  return QString::fromStdString(shown).left(64);
}

}  // namespace

UpdateCheckFeedbackWindow::~UpdateCheckFeedbackWindow() { delete m_box.data(); }

QMessageBox* UpdateCheckFeedbackWindow::window() const { return m_box; }

QString UpdateCheckFeedbackWindow::text(const UpdateCheckFeedback& feedback) {
  using Kind = UpdateCheckFeedback::Kind;
  switch (feedback.kind) {
    case Kind::checking:
      return QStringLiteral("Checking for updates…");
    case Kind::upToDate:
      return QStringLiteral("You're up to date.");
    case Kind::updateAvailable:
      return QStringLiteral("ZEV Launcher %1 is available.").arg(versionText(feedback));
    case Kind::error:
      return QStringLiteral("The update check failed: %1")
          .arg(QString::fromStdString(feedback.errorDescription).left(300));
  }
  return {};
}

void UpdateCheckFeedbackWindow::show(const UpdateCheckFeedback& feedback) {
  if (!m_box) {
    m_box = new QMessageBox();
    m_box->setWindowTitle(QStringLiteral("ZEV Launcher Updates"));
    m_box->setTextFormat(Qt::PlainText);
    m_box->setWindowModality(Qt::NonModal);
  }
  QMessageBox& box = *m_box;
  box.setText(text(feedback));
  // Buttons of an earlier step go; the offer gets Install and Later.
  // removeButton hands the button back to us; it may be the one being
  // clicked right now, so it goes once control is back in the event loop.
  for (QAbstractButton* button : box.buttons()) {
    box.removeButton(button);
    button->deleteLater();
  }
  using Kind = UpdateCheckFeedback::Kind;
  box.setIcon(feedback.kind == Kind::error ? QMessageBox::Warning : QMessageBox::Information);
  if (feedback.kind == Kind::updateAvailable && feedback.install) {
    QString informative =
        QStringLiteral("It is installed only after the launcher has archived this version; "
                       "the new version is then checked against the daemon's health.");
    if (!feedback.releaseNotes.empty()) {
      informative += QStringLiteral("\n\nWhat's new:\n") +
                     QString::fromStdString(feedback.releaseNotes).left(2000);
    }
    box.setInformativeText(informative);
    QPushButton* install = box.addButton(QStringLiteral("Install"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Later"), QMessageBox::RejectRole);
    QObject::connect(install, &QPushButton::clicked, install,
                     [accept = feedback.install] { accept(); });
  } else {
    box.setInformativeText(QString());
    box.addButton(feedback.kind == Kind::checking ? QMessageBox::Close : QMessageBox::Ok);
  }
  // The informative text holds release notes from the feed: never let the
  // label guess that they are markup.
  if (auto* label = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
    label->setTextFormat(Qt::PlainText);
  }
  box.show();
  box.raise();
  box.activateWindow();
}

}  // namespace zev
