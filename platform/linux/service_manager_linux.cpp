#include "platform/linux/service_manager_linux.h"

#include <QByteArray>
#include <QSaveFile>
#include <QStandardPaths>
#include <QString>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "app/shell/process_runner.h"

namespace zev {
namespace {

ServiceError makeError(std::string_view domain, int code, std::string description) {
  ServiceError error;
  error.code = code;
  error.fullDescription = "Error Domain=" + std::string(domain) + " Code=" + std::to_string(code) +
                          " \"" + description + "\"";
  error.localizedDescription = std::move(description);
  return error;
}

// Escapes for a desktop entry's string values: backslash and control
// characters become \\, \n, \t, \r.
std::string escapeDesktopString(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// One Exec argument: always double-quoted, with ", `, $ and \ escaped inside
// the quotes, then escaped as a string value, and % doubled so that no part of
// the path reads as a field code.
std::string execArgument(std::string_view argument) {
  std::string quoted = "\"";
  for (const char c : argument) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
    quoted += c;
  }
  quoted += '"';
  std::string out;
  for (const char c : escapeDesktopString(quoted)) {
    out += c;
    if (c == '%') out += '%';
  }
  return out;
}

std::string oneLine(std::string_view text) {
  std::string out;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    if (line.empty()) continue;
    if (!out.empty()) out += "; ";
    out += line;
  }
  return out;
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

class AutostartService : public AppService {
 public:
  AutostartService(std::filesystem::path entry, std::filesystem::path executable)
      : m_entry(std::move(entry)), m_content(autostartEntry(executable)) {}

  std::optional<ServiceError> registerService() override {
    const std::optional<std::string> existing = readFile(m_entry);
    if (existing) {
      if (const std::optional<std::string> how = switchedOff(*existing)) {
        return makeError(domain, ServiceError::switchedOffByUser,
                         "autostart entry " + m_entry.string() + " is switched off (" + *how +
                             "); left off as the user chose");
      }
    }
    if (existing == m_content) {
      return makeError(domain, ServiceError::alreadyRegistered,
                       "autostart entry " + m_entry.string() + " is already registered");
    }
    std::error_code error;
    std::filesystem::create_directories(m_entry.parent_path(), error);
    if (error) return makeError(domain, error.value(), describe("cannot create", error.message()));

    QSaveFile file(QString::fromStdString(m_entry.string()));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QByteArray::fromStdString(m_content)) != static_cast<qint64>(m_content.size()) ||
        !file.commit()) {
      return makeError(domain, EIO, describe("cannot write", file.errorString().toStdString()));
    }
    return std::nullopt;
  }

  std::optional<ServiceError> unregisterService() override {
    std::error_code error;
    if (std::filesystem::remove(m_entry, error)) return std::nullopt;
    if (!error) return makeError(domain, ENOENT, "no autostart entry at " + m_entry.string());
    return makeError(domain, error.value(), describe("cannot remove", error.message()));
  }

  std::string statusDescription() override {
    const std::optional<std::string> content = readFile(m_entry);
    if (!content) return "notRegistered";
    return *content == m_content ? "enabled" : "enabled (entry differs)";
  }

 private:
  static constexpr std::string_view domain = "XDGAutostart";

  std::string describe(std::string_view what, const std::string& why) const {
    return std::string(what) + " " + m_entry.string() + ": " + why;
  }

  const std::filesystem::path m_entry;
  const std::string m_content;
};

class SystemdUserService : public AppService {
 public:
  SystemdUserService(std::filesystem::path unitFile, std::filesystem::path installed,
                     std::filesystem::path daemon, std::string unitName,
                     std::chrono::milliseconds timeout)
      : m_unitFile(std::move(unitFile)),
        m_installed(std::move(installed)),
        m_daemon(std::move(daemon)),
        m_unitName(std::move(unitName)),
        m_timeout(timeout) {}

  std::optional<ServiceError> registerService() override {
    const std::optional<std::string> unitTemplate = readFile(m_unitFile);
    if (!unitTemplate) return makeError(domain, ENOENT, "no unit file at " + m_unitFile.string());
    const std::string unit = unitForDaemon(*unitTemplate, m_daemon);
    const bool current = readFile(m_installed) == unit;
    if (unitFileState() == "enabled" && current) {
      m_knownState = "enabled";
      return makeError(domain, ServiceError::alreadyRegistered, m_unitName + " is already enabled");
    }
    // The manager rereads unit files only when told; a file that did not
    // change spares the launch that call.
    if (!current) {
      if (auto error = install(unit)) return error;
      if (auto error = systemctl({"daemon-reload"})) return error;
    }
    auto error = systemctl({"enable", m_unitName});
    if (!error) m_knownState = "enabled";
    return error;
  }

  // Leaves the unit file in place (the next registration rewrites it);
  // `disable` also removes a link made by earlier versions with `link`.
  std::optional<ServiceError> unregisterService() override {
    m_knownState.reset();
    return systemctl({"disable", m_unitName});
  }

  // What registering just established, else is-enabled's answer.
  std::string statusDescription() override { return m_knownState ? *m_knownState : unitFileState(); }

 private:
  static constexpr std::string_view domain = "systemd";

  // is-enabled's answer ("enabled", "linked", "disabled", …), or "unknown"
  // with the reason when systemctl gave none.
  std::string unitFileState() const {
    try {
      const CapturedRun run =
          runCapturingOutput(systemctlPath(), {"--user", "is-enabled", m_unitName}, m_timeout);
      const std::string answer = oneLine(run.output);
      if (!answer.empty() && answer.find(' ') == std::string::npos) return answer;
      return answer.empty() ? "unknown" : "unknown (" + answer + ")";
    } catch (const ProcessLaunchError& error) {
      return std::string("unknown (") + error.what() + ")";
    }
  }

  std::optional<ServiceError> systemctl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "--user");
    std::string commandLine = "systemctl";
    for (const std::string& argument : arguments) commandLine += " " + argument;
    try {
      const CapturedRun run = runCapturingOutput(systemctlPath(), arguments, m_timeout);
      if (run.exitStatus == 0) return std::nullopt;
      const std::string output = oneLine(run.output);
      // Not "already" anywhere in the output: a failure is a failure.
      // "Already registered" is decided from is-enabled's answer alone.
      return makeError(domain, run.exitStatus,
                       commandLine + " exited " + std::to_string(run.exitStatus) +
                           (output.empty() ? "" : ": " + output));
    } catch (const ProcessLaunchError& error) {
      return makeError(domain, serviceCommandFailed, commandLine + " failed: " + error.what());
    }
  }

  // Writes the unit into the user's unit directory, replacing a link to a
  // bundle's unit that an earlier version made.
  std::optional<ServiceError> install(const std::string& unit) const {
    std::error_code error;
    std::filesystem::create_directories(m_installed.parent_path(), error);
    if (error) {
      return makeError(domain, error.value(),
                       "cannot create " + m_installed.parent_path().string() + ": " + error.message());
    }
    if (std::filesystem::is_symlink(m_installed, error)) std::filesystem::remove(m_installed, error);
    QSaveFile file(QString::fromStdString(m_installed.string()));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QByteArray::fromStdString(unit)) != static_cast<qint64>(unit.size()) ||
        !file.commit()) {
      return makeError(domain, EIO,
                       "cannot write " + m_installed.string() + ": " + file.errorString().toStdString());
    }
    return std::nullopt;
  }

  const std::filesystem::path m_unitFile;   // the bundle's, a template
  const std::filesystem::path m_installed;  // the user's copy, naming our daemon
  const std::filesystem::path m_daemon;
  const std::string m_unitName;
  const std::chrono::milliseconds m_timeout;
  std::optional<std::string> m_knownState;
};

}  // namespace

std::string autostartEntry(const std::filesystem::path& executable) {
  return "[Desktop Entry]\n"
         "Type=Application\n"
         "Name=ZEV Launcher\n"
         "Comment=Keeps the zevd camera recorder running and shows its health\n"
         "Exec=" +
         execArgument(executable.string()) +
         "\n"
         "TryExec=" +
         escapeDesktopString(executable.string()) +
         "\n"
         "Terminal=false\n"
         "X-GNOME-Autostart-enabled=true\n";
}

std::optional<std::string> switchedOff(std::string_view entry) {
  bool inMainGroup = false;
  std::istringstream lines{std::string(entry)};
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.starts_with('[')) {
      inMainGroup = line == "[Desktop Entry]";
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!inMainGroup || equals == std::string::npos) continue;
    const auto trim = [](std::string text) {
      const auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
      while (!text.empty() && blank(text.back())) text.pop_back();
      while (!text.empty() && blank(text.front())) text.erase(text.begin());
      return text;
    };
    const std::string key = trim(line.substr(0, equals));
    const std::string value = trim(line.substr(equals + 1));
    if (key == "Hidden" && value == "true") return key + "=" + value;
    if (key == "X-GNOME-Autostart-enabled" && value == "false") return key + "=" + value;
  }
  return std::nullopt;
}

std::string unitForDaemon(std::string_view unitTemplate, const std::filesystem::path& daemon) {
  // One quoted word; inside it systemd reads \\ and \" as escapes, % as a
  // specifier and $ as a variable, so those are doubled or escaped.
  std::string quoted = "\"";
  for (const char c : daemon.string()) {
    if (c == '\\' || c == '"') quoted += '\\';
    if (c == '%' || c == '$') quoted += c;
    if (c == '\n' || c == '\r') {
      quoted += ' ';
      continue;
    }
    quoted += c;
  }
  quoted += '"';
  std::string out;
  bool replaced = false;
  std::istringstream lines{std::string(unitTemplate)};
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("ExecStart=")) {
      if (replaced) continue;
      line = "ExecStart=" + quoted;
      replaced = true;
    }
    out += line + "\n";
  }
  if (!replaced) out += "[Service]\nExecStart=" + quoted + "\n";
  return out;
}

std::string unitNameForPlist(std::string_view plistName) {
  constexpr std::string_view plistSuffix = ".plist";
  if (plistName.ends_with(plistSuffix)) plistName.remove_suffix(plistSuffix.size());
  return std::string(plistName) + ".service";
}

std::string systemctlPath() {
  const QString found = QStandardPaths::findExecutable(QStringLiteral("systemctl"));
  return found.isEmpty() ? std::string("systemctl") : found.toStdString();
}

std::filesystem::path xdgConfigHome(const std::filesystem::path& home) {
  const QString configured = qEnvironmentVariable("XDG_CONFIG_HOME");
  const std::filesystem::path path = configured.toStdString();
  if (path.is_absolute()) return path;
  return home / ".config";
}

LinuxServiceManager::LinuxServiceManager(std::filesystem::path bundle,
                                         std::filesystem::path executable,
                                         std::filesystem::path configHome,
                                         std::chrono::milliseconds commandTimeout)
    : m_bundle(std::move(bundle)),
      m_executable(std::move(executable)),
      m_configHome(std::move(configHome)),
      m_commandTimeout(commandTimeout) {}

std::unique_ptr<AppService> LinuxServiceManager::mainAppService() {
  return std::make_unique<AutostartService>(m_configHome / "autostart" / autostartEntryName,
                                            m_executable);
}

std::unique_ptr<AppService> LinuxServiceManager::agentService(const std::string& plistName) {
  const std::string unit = unitNameForPlist(plistName);
  return std::make_unique<SystemdUserService>(m_bundle / bundleUnitDirectory / unit,
                                              m_configHome / "systemd" / "user" / unit,
                                              m_bundle / "Contents" / "Helpers" / "zevd", unit,
                                              m_commandTimeout);
}

Command LinuxServiceManager::kickstartCommand(const std::string& label) {
  return Command{systemctlPath(), {"--user", "restart", label + ".service"}};
}

}  // namespace zev
