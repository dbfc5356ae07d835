// A fresh, empty directory for one test, removed with everything in it when
// the test ends.
#ifndef ZEV_TESTS_SUPPORT_SCRATCH_DIRECTORY_H_
#define ZEV_TESTS_SUPPORT_SCRATCH_DIRECTORY_H_

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace zev::testing {

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string nameTemplate =
        (std::filesystem::temp_directory_path() / "zev-test-XXXXXX").string();
    if (!::mkdtemp(nameTemplate.data())) throw std::runtime_error("mkdtemp failed");
    m_path = nameTemplate;
  }
  ~ScratchDirectory() {
    std::error_code ec;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_path, ec);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_SUPPORT_SCRATCH_DIRECTORY_H_
