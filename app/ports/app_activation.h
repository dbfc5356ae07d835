// Activation policy and focus. macOS: accessory (no Dock icon) or regular, and
// NSApp activate. Linux: nothing to switch; activation raises our windows.
#ifndef ZEV_APP_PORTS_APP_ACTIVATION_H_
#define ZEV_APP_PORTS_APP_ACTIVATION_H_

namespace zev {

class AppActivation {
 public:
  virtual ~AppActivation() = default;
  virtual void becomeAccessory() = 0;
  virtual void becomeRegular() = 0;
  // Brings the application to the front, taking focus from others.
  virtual void activate() = 0;
};

}  // namespace zev

#endif  // ZEV_APP_PORTS_APP_ACTIVATION_H_
