#include "sentinel.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace zev::sim {

void touchSentinel(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), path.string());
  // Through the descriptor, so a sentinel replaced in between is not touched
  // by mistake; a null time list means "now".
  const int result = ::futimens(fd, nullptr);
  const int error = errno;
  ::close(fd);
  if (result != 0) throw std::system_error(error, std::generic_category(), path.string());
}

}  // namespace zev::sim
