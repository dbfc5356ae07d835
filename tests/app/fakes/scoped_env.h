// Sets an environment variable for the life of a scope and restores it after.
#ifndef ZEV_TESTS_APP_FAKES_SCOPED_ENV_H_
#define ZEV_TESTS_APP_FAKES_SCOPED_ENV_H_

#include <cstdlib>
#include <optional>
#include <string>

namespace zev::testing {

class ScopedEnv {
 public:
  ScopedEnv(std::string name, const std::string& value) : m_name(std::move(name)) {
    if (const char* old = std::getenv(m_name.c_str())) m_old = old;
    ::setenv(m_name.c_str(), value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (m_old) {
      ::setenv(m_name.c_str(), m_old->c_str(), 1);
    } else {
      ::unsetenv(m_name.c_str());
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string m_name;
  std::optional<std::string> m_old;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_SCOPED_ENV_H_
