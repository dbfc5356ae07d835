// Archives the running bundle before an update: a full copy of it, checked
// before the update is allowed to replace the original. macOS: ditto, then
// codesign --verify --deep --strict. Linux: a copy keeping modes and symbolic
// links, checked against the bundle's signed manifest of file digests.
//
// Both calls block and may take long (a whole bundle is read): they are made
// from a worker thread, never the main thread. Implementations must be safe
// to call from any thread and keep no state between calls.
#ifndef ZEV_APP_PORTS_ARCHIVE_TOOL_H_
#define ZEV_APP_PORTS_ARCHIVE_TOOL_H_

#include <filesystem>
#include <optional>
#include <string>

namespace zev {

class ArchiveTool {
 public:
  virtual ~ArchiveTool() = default;

  // Copies the bundle directory `bundle` to `archive`, which should not exist
  // yet (its parent does). Nothing on success; otherwise a one-line
  // description of the failure (for a tool: "<path> exited <status>"). A
  // failed copy may leave a partial archive behind; the caller keeps it.
  virtual std::optional<std::string> copyBundle(const std::filesystem::path& bundle,
                                                const std::filesystem::path& archive) = 0;

  // Checks that `archive` is a complete, unaltered copy of a signed bundle.
  // Nothing when it is; otherwise a one-line description naming what is
  // wrong (the tool's exit, or the missing, altered or extra file).
  virtual std::optional<std::string> verifyCopy(const std::filesystem::path& archive) = 0;
};

}  // namespace zev

#endif  // ZEV_APP_PORTS_ARCHIVE_TOOL_H_
