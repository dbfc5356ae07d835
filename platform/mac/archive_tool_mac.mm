// ArchiveTool on macOS: /usr/bin/ditto copies the bundle (modes, links,
// extended attributes and signatures kept) and /usr/bin/codesign --verify
// --deep --strict checks the copy's code signature. Both through the
// process runner, on the archiving step's worker thread. Never compiled off
// Apple; not exercised by the Linux CI.
#include <exception>
#include <memory>

#include "app/ports/archive_tool.h"
#include "app/shell/process_runner.h"

namespace zev {
namespace {

// Nothing when the tool exited 0; else "<path> exited <status>", or the
// reason it could not be started.
std::optional<std::string> runTool(const std::string& path, const std::vector<std::string>& args) {
  try {
    runInheritingOutput(path, args);
    return std::nullopt;
  } catch (const std::exception& error) {
    return std::string(error.what());
  }
}

class MacArchiveTool : public ArchiveTool {
 public:
  std::optional<std::string> copyBundle(const std::filesystem::path& bundle,
                                        const std::filesystem::path& archive) override {
    return runTool("/usr/bin/ditto", {bundle.string(), archive.string()});
  }
  std::optional<std::string> verifyCopy(const std::filesystem::path& archive) override {
    return runTool("/usr/bin/codesign", {"--verify", "--deep", "--strict", archive.string()});
  }
};

}  // namespace

std::unique_ptr<ArchiveTool> makeMacArchiveTool() { return std::make_unique<MacArchiveTool>(); }

}  // namespace zev
