// The unified log's C interface as the macOS 14 SDK offers it (Apple's "os"
// reference: Logging), declarations only. The os_log_* macros of the SDK
// check their format string at compile time with clang's os_log format
// rules (%{public}s and the like); the stand-in function below carries the
// same check, so a format mistake fails here as it would on a Mac.
#ifndef ZEV_SHIM_OS_LOG_H_
#define ZEV_SHIM_OS_LOG_H_

#include <stdint.h>

#ifdef __OBJC__
#import <Foundation/NSObject.h>
// In Objective-C the SDK makes os_log_t an object, retained and released by
// ARC.
@protocol OS_os_log <NSObject>
@end
typedef NSObject<OS_os_log>* os_log_t;
#define ZEV_SHIM_OS_RETURNS_RETAINED __attribute__((ns_returns_retained))
#else
typedef struct os_log_s* os_log_t;
#define ZEV_SHIM_OS_RETURNS_RETAINED
#endif

typedef uint8_t os_log_type_t;
enum {
  OS_LOG_TYPE_DEFAULT = 0x00,
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_DEBUG = 0x02,
  OS_LOG_TYPE_ERROR = 0x10,
  OS_LOG_TYPE_FAULT = 0x11,
};

#ifdef __cplusplus
extern "C" {
#endif
os_log_t os_log_create(const char* subsystem, const char* category)
    ZEV_SHIM_OS_RETURNS_RETAINED __attribute__((availability(macos, introduced = 10.12)));
bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void zev_shim_os_log_with_type(os_log_t log, os_log_type_t type, const char* format, ...)
    __attribute__((format(os_log, 3, 4)));
#ifdef __cplusplus
}
#endif

#define os_log_with_type(log, type, format, ...) \
  zev_shim_os_log_with_type(log, type, format __VA_OPT__(, ) __VA_ARGS__)
#define os_log(log, format, ...) \
  os_log_with_type(log, OS_LOG_TYPE_DEFAULT, format __VA_OPT__(, ) __VA_ARGS__)
#define os_log_info(log, format, ...) \
  os_log_with_type(log, OS_LOG_TYPE_INFO, format __VA_OPT__(, ) __VA_ARGS__)
#define os_log_debug(log, format, ...) \
  os_log_with_type(log, OS_LOG_TYPE_DEBUG, format __VA_OPT__(, ) __VA_ARGS__)
#define os_log_error(log, format, ...) \
  os_log_with_type(log, OS_LOG_TYPE_ERROR, format __VA_OPT__(, ) __VA_ARGS__)
#define os_log_fault(log, format, ...) \
  os_log_with_type(log, OS_LOG_TYPE_FAULT, format __VA_OPT__(, ) __VA_ARGS__)

#endif  // ZEV_SHIM_OS_LOG_H_
