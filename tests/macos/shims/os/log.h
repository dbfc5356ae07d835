// The part of the unified log's C interface (Apple's "os" reference: Logging,
// macOS 10.12 and later) the system log adapter uses, as the macOS 14 SDK
// declares it for Objective-C, where os_log_t is an object retained and
// released by ARC. Declarations only. The SDK's os_log_* macros check their
// format string at compile time with clang's os_log format rules
// (%{public}s and the like); the stand-in function below carries the same
// check, so a format mistake fails here as it would on a Mac.
#ifndef ZEV_SHIM_OS_LOG_H_
#define ZEV_SHIM_OS_LOG_H_

#include <stdint.h>

#import <Foundation/NSObject.h>

@protocol OS_os_log <NSObject>
@end
typedef NSObject<OS_os_log>* os_log_t;

typedef uint8_t os_log_type_t;
enum {
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_ERROR = 0x10,
};

extern "C" {
os_log_t os_log_create(const char* subsystem, const char* category)
    __attribute__((ns_returns_retained));
void zev_shim_os_log_with_type(os_log_t log, os_log_type_t type, const char* format, ...)
    __attribute__((format(os_log, 3, 4)));
}

#define os_log_info(log, format, ...) \
  zev_shim_os_log_with_type(log, OS_LOG_TYPE_INFO, format __VA_OPT__(, ) __VA_ARGS__)
#define os_log_error(log, format, ...) \
  zev_shim_os_log_with_type(log, OS_LOG_TYPE_ERROR, format __VA_OPT__(, ) __VA_ARGS__)

#endif  // ZEV_SHIM_OS_LOG_H_
