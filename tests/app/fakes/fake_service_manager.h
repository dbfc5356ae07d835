// A ServiceManager whose answers are set by the test. Every call is appended
// to `calls` ("mainApp.register", "agent(com.zev.zevd.plist).unregister",
// "kickstartCommand(com.zev.zevd)", …) so tests can check the order.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_SERVICE_MANAGER_H_
#define ZEV_TESTS_APP_FAKES_FAKE_SERVICE_MANAGER_H_

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/ports/service_manager.h"

namespace zev::testing {

inline ServiceError serviceError(int code, const std::string& text) {
  return ServiceError{code, text,
                      "Error Domain=Fake Code=" + std::to_string(code) + " \"" + text + "\""};
}

struct FakeServiceAnswers {
  std::optional<ServiceError> registerResult;
  // When set, register throws std::runtime_error with this text, as a broken
  // adapter might.
  std::optional<std::string> registerThrows;
  std::optional<ServiceError> unregisterResult;
};

class FakeServiceManager : public ServiceManager {
 public:
  FakeServiceAnswers mainApp;
  FakeServiceAnswers agent;
  // What kickstartCommand hands out; a harmless command by default.
  Command kickstart{"/bin/sh", {"-c", "exit 0"}};
  std::vector<std::string> calls;

  std::unique_ptr<AppService> mainAppService() override {
    calls.push_back("mainAppService");
    return std::make_unique<Service>("mainApp", mainApp, calls);
  }
  std::unique_ptr<AppService> agentService(const std::string& plistName) override {
    calls.push_back("agentService(" + plistName + ")");
    return std::make_unique<Service>("agent(" + plistName + ")", agent, calls);
  }
  Command kickstartCommand(const std::string& label) override {
    calls.push_back("kickstartCommand(" + label + ")");
    return kickstart;
  }

 private:
  struct Service : AppService {
    Service(std::string name, const FakeServiceAnswers& answers, std::vector<std::string>& calls)
        : m_name(std::move(name)), m_answers(answers), m_calls(calls) {}
    std::optional<ServiceError> registerService() override {
      m_calls.push_back(m_name + ".register");
      if (m_answers.registerThrows) throw std::runtime_error(*m_answers.registerThrows);
      return m_answers.registerResult;
    }
    std::optional<ServiceError> unregisterService() override {
      m_calls.push_back(m_name + ".unregister");
      return m_answers.unregisterResult;
    }
    std::string statusDescription() override {
      m_calls.push_back(m_name + ".status");
      return "enabled";
    }

    std::string m_name;
    const FakeServiceAnswers& m_answers;
    std::vector<std::string>& m_calls;
  };
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_SERVICE_MANAGER_H_
