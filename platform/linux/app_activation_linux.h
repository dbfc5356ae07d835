// AppActivation on Linux: there is no Dock, so the activation policy has
// nothing to switch; activating raises and focuses our frontmost window (the
// window manager may still only mark it as demanding attention). Main thread.
#ifndef ZEV_PLATFORM_LINUX_APP_ACTIVATION_LINUX_H_
#define ZEV_PLATFORM_LINUX_APP_ACTIVATION_LINUX_H_

#include "app/ports/app_activation.h"

namespace zev {

class LinuxAppActivation : public AppActivation {
 public:
  void becomeAccessory() override {}
  void becomeRegular() override {}
  void activate() override;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_APP_ACTIVATION_LINUX_H_
