#include "app/shell/process_runner.h"

#include <QProcess>
#include <QString>
#include <QStringConverter>
#include <QStringList>

namespace zev {
namespace {

QStringList toQStringList(const std::vector<std::string>& arguments) {
  QStringList list;
  list.reserve(static_cast<qsizetype>(arguments.size()));
  for (const std::string& argument : arguments) list.append(QString::fromStdString(argument));
  return list;
}

void startOrThrow(QProcess& process, const std::string& path,
                  const std::vector<std::string>& arguments, QIODevice::OpenMode mode) {
  process.setProgram(QString::fromStdString(path));
  process.setArguments(toQStringList(arguments));
  process.start(mode);
  // Starting is a fork and an exec; a system too loaded to do that in ten
  // seconds gets an error rather than a caller waiting for ever.
  if (!process.waitForStarted(10000)) {
    process.kill();
    throw ProcessLaunchError(process.errorString().toStdString());
  }
}

// The exit status as the system reports it: the exit code after a normal
// exit, the signal number after a crash (Qt keeps that in exitCode()).
int statusOf(const QProcess& process) {
  const int code = process.exitCode();
  if (process.exitStatus() == QProcess::CrashExit && code == 0) return -1;
  return code;
}

std::string decodeUtf8OrEmpty(const QByteArray& bytes) {
  QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
  const QString text = decoder(bytes);
  if (decoder.hasError()) return {};
  return text.toStdString();
}

}  // namespace

ReliabilityError::ReliabilityError(const std::string& path, int status)
    : std::runtime_error(path + " exited " + std::to_string(status)), m_code(status) {}

void runInheritingOutput(const std::string& path, const std::vector<std::string>& arguments) {
  QProcess process;
  process.setProcessChannelMode(QProcess::ForwardedChannels);
  process.setInputChannelMode(QProcess::ForwardedInputChannel);
  startOrThrow(process, path, arguments, QIODevice::ReadWrite);
  process.waitForFinished(-1);
  const int status = statusOf(process);
  if (status != 0) throw ReliabilityError(path, status);
}

CapturedRun runCapturingOutput(const std::string& path, const std::vector<std::string>& arguments,
                               std::optional<std::chrono::milliseconds> timeout) {
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  // Standard input is /dev/null, so a tool that asks a question reads
  // end-of-file instead of waiting forever on a pipe nobody writes to.
  process.setStandardInputFile(QProcess::nullDevice());
  startOrThrow(process, path, arguments, QIODevice::ReadOnly);
  const int limit = timeout ? static_cast<int>(timeout->count()) : -1;
  // waitForFinished drains the pipe into QProcess's buffer as it waits, so a
  // chatty child cannot fill the pipe and stall.
  if (!process.waitForFinished(limit)) {
    process.kill();
    process.waitForFinished(-1);
    throw ProcessLaunchError(path + " did not exit within " + std::to_string(limit) + " ms");
  }
  return CapturedRun{statusOf(process), decodeUtf8OrEmpty(process.readAll())};
}

}  // namespace zev
