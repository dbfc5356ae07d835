// AppDelegate::restartAgent: the popover's restart, run beside the event loop
// so that a slow or stuck service manager never freezes the tray.
#include <QProcess>
#include <QStringConverter>
#include <QTimer>

#include "app/shell/app_delegate.h"
#include "app/shell/constants.h"

namespace zev {
namespace {

// More output than a restart command ever writes; the rest is not logged.
constexpr qint64 kMaxLoggedOutput = 64 * 1024;

}  // namespace

void AppDelegate::restartAgent() {
  SystemLog& log = *m_platform.launcherLog;
  if (m_restart) {
    log.info("restart already running; request dropped");
    return;
  }
  const Command command = m_platform.serviceManager->kickstartCommand(std::string(agentLabel));
  auto* process = new QProcess(this);
  m_restart = process;
  process->setProcessChannelMode(QProcess::MergedChannels);
  process->setStandardInputFile(QProcess::nullDevice());
  process->setProgram(QString::fromStdString(command.path));
  QStringList arguments;
  for (const std::string& argument : command.arguments) arguments << QString::fromStdString(argument);
  process->setArguments(arguments);

  QObject::connect(process, &QProcess::errorOccurred, this,
                   [this, process](QProcess::ProcessError error) {
                     if (error != QProcess::FailedToStart) return;
                     m_platform.launcherLog->error("kickstart spawn failed: " +
                                                   process->errorString().toStdString());
                     process->deleteLater();
                   });
  QObject::connect(
      process, &QProcess::finished, this, [this, process](int exitCode, QProcess::ExitStatus how) {
        const int status = how == QProcess::CrashExit && exitCode == 0 ? -1 : exitCode;
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString output = decoder(process->read(kMaxLoggedOutput));
        m_platform.launcherLog->info("kickstart exit=" + std::to_string(status) + " out=" +
                                     (decoder.hasError() ? std::string() : output.toStdString()));
        process->deleteLater();
      });
  // A command that outlives the limit is killed; finished() then logs it.
  QTimer::singleShot(kickstartTimeout, process, [this, process] {
    m_platform.launcherLog->error("kickstart did not exit within " +
                                  std::to_string(kickstartTimeout.count()) + " ms; killed");
    process->kill();
  });
  process->start(QIODevice::ReadOnly);
}

}  // namespace zev
