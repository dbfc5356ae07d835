// The desktop: open a URL in the default browser, reveal a file in the file
// manager. Main thread.
#ifndef ZEV_APP_PORTS_WORKSPACE_H_
#define ZEV_APP_PORTS_WORKSPACE_H_

#include <filesystem>
#include <string>

namespace zev {

class Workspace {
 public:
  virtual ~Workspace() = default;
  virtual void openURL(const std::string& url) = 0;
  virtual void revealFile(const std::filesystem::path& file) = 0;
};

}  // namespace zev

#endif  // ZEV_APP_PORTS_WORKSPACE_H_
