// ServiceManager on SMAppService and launchctl. Compile-checked on Linux
// against GNUstep and declaration shims (tests/macos); never run there.
#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>
#include <unistd.h>

#include <string>

#include "app/ports/service_manager.h"

namespace zev {
namespace {

std::string utf8(NSString* text) {
  const char* bytes = text.UTF8String;
  return bytes ? std::string(bytes) : std::string();
}

std::optional<ServiceError> toServiceError(BOOL ok, NSError* error) {
  if (ok) return std::nullopt;
  ServiceError result;  // a nil error (no service at all) leaves code 0 and no text
  result.code = static_cast<int>(error.code);
  result.localizedDescription = utf8(error.localizedDescription);
  result.fullDescription = utf8(error.description);
  return result;
}

std::string describe(SMAppServiceStatus status) {
  switch (status) {
    case SMAppServiceStatusNotRegistered: return "notRegistered";
    case SMAppServiceStatusEnabled: return "enabled";
    case SMAppServiceStatusRequiresApproval: return "requiresApproval";
    case SMAppServiceStatusNotFound: return "notFound";
  }
  return "unknown(" + std::to_string(static_cast<long>(status)) + ")";
}

class MacAppService : public AppService {
 public:
  explicit MacAppService(SMAppService* service) : m_service(service) {}

  std::optional<ServiceError> registerService() override {
    NSError* error = nil;
    const BOOL ok = [m_service registerAndReturnError:&error];
    return toServiceError(ok, error);
  }
  std::optional<ServiceError> unregisterService() override {
    NSError* error = nil;
    const BOOL ok = [m_service unregisterAndReturnError:&error];
    return toServiceError(ok, error);
  }
  std::string statusDescription() override { return describe(m_service.status); }

 private:
  SMAppService* m_service;  // strong under ARC
};

class MacServiceManager : public ServiceManager {
 public:
  std::unique_ptr<AppService> mainAppService() override {
    return std::make_unique<MacAppService>(SMAppService.mainAppService);
  }
  std::unique_ptr<AppService> agentService(const std::string& plistName) override {
    // A name that is not UTF-8 gives no service: every call on it then fails.
    NSString* name = [NSString stringWithUTF8String:plistName.c_str()];
    return std::make_unique<MacAppService>(name ? [SMAppService agentServiceWithPlistName:name]
                                                : nil);
  }
  Command kickstartCommand(const std::string& label) override {
    return Command{"/bin/launchctl",
                   {"kickstart", "-k", "gui/" + std::to_string(::getuid()) + "/" + label}};
  }
};

}  // namespace

std::unique_ptr<ServiceManager> makeMacServiceManager() {
  return std::make_unique<MacServiceManager>();
}

}  // namespace zev
