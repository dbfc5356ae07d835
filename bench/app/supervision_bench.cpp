// What daemon supervision costs the launcher's main thread at start-up and on
// a restart: one captured command, the login-item check, a log line, and the
// whole supervision part of the launch sequence against a stand-in systemctl
// (so the figure is the launcher's own overhead, not systemd's).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "app/shell/app_delegate.h"
#include "app/shell/process_runner.h"
#include "platform/linux/bundle_info_linux.h"
#include "platform/linux/service_manager_linux.h"
#include "platform/linux/system_log_linux.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

// A bundle with a daemon and unit, a scratch config home, and a systemctl that
// answers at once, first on PATH.
struct Scratch {
  Scratch() {
    root = dir.path().toStdString();
    bundle = root / "ZEV.app";
    fs::create_directories(bundle / "Contents/Linux");
    fs::create_directories(bundle / "Contents/Helpers");
    fs::create_directories(bundle / "Contents/Library/systemd/user");
    std::ofstream(bundle / "Contents/Helpers/zevd") << "#!/bin/sh\n";
    fs::permissions(bundle / "Contents/Helpers/zevd", fs::perms(0755));
    std::ofstream(bundle / "Contents/Library/systemd/user/com.zev.zevd.service") << "[Service]\n";
    fs::create_directories(root / "bin");
    std::ofstream(root / "bin/systemctl") << "#!/bin/sh\nexit 0\n";
    fs::permissions(root / "bin/systemctl", fs::perms(0755));
    ::setenv("PATH", (root.string() + "/bin:/usr/bin:/bin").c_str(), 1);
  }

  QTemporaryDir dir;
  fs::path root;
  fs::path bundle;
};

void BM_CapturedCommand(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(runCapturingOutput("/bin/true", {}));
}
BENCHMARK(BM_CapturedCommand)->Unit(benchmark::kMillisecond);

void BM_LoginItemAlreadyRegistered(benchmark::State& state) {
  Scratch scratch;
  LinuxServiceManager manager(scratch.bundle, scratch.bundle / "Contents/Linux/ZEVLauncher",
                              scratch.root / "config");
  auto service = manager.mainAppService();
  service->registerService();
  for (auto _ : state) benchmark::DoNotOptimize(service->registerService());
}
BENCHMARK(BM_LoginItemAlreadyRegistered)->Unit(benchmark::kMicrosecond);

void BM_LogLineToStandardError(benchmark::State& state) {
  const int saved = ::dup(STDERR_FILENO);
  const int devNull = ::open("/dev/null", O_WRONLY);
  ::dup2(devNull, STDERR_FILENO);
  JournalSystemLog log("com.zev.zevd", "launcher", "/nonexistent/journal/socket");
  for (auto _ : state) log.info("kickstart exit=0 out=");
  ::dup2(saved, STDERR_FILENO);
  ::close(devNull);
  ::close(saved);
}
BENCHMARK(BM_LogLineToStandardError);

// verifyDaemonPresent, registerLoginItem, registerAgent and kickstartAgent
// with the Linux adapters: six systemctl runs and two small files.
void BM_SupervisionSteps(benchmark::State& state) {
  Scratch scratch;
  std::ostringstream standardError;
  Platform platform;
  platform.launcherLog =
      std::make_unique<JournalSystemLog>("com.zev.zevd", "launcher", "/nonexistent/journal/socket");
  platform.serviceManager = std::make_unique<LinuxServiceManager>(
      scratch.bundle, scratch.bundle / "Contents/Linux/ZEVLauncher", scratch.root / "config");
  platform.bundleInfo = std::make_unique<LinuxBundleInfo>(
      scratch.bundle / "Contents/Linux/ZEVLauncher", scratch.root);
  AppDelegate delegate(std::move(platform), standardError);

  const int saved = ::dup(STDERR_FILENO);
  const int devNull = ::open("/dev/null", O_WRONLY);
  ::dup2(devNull, STDERR_FILENO);
  for (auto _ : state) {
    delegate.verifyDaemonPresent();
    delegate.registerLoginItem();
    delegate.registerAgent();
    delegate.kickstartAgent();
  }
  ::dup2(saved, STDERR_FILENO);
  ::close(devNull);
  ::close(saved);
}
BENCHMARK(BM_SupervisionSteps)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zev

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
