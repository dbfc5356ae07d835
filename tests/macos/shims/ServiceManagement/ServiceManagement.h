// ServiceManagement as the macOS 14 SDK declares what the adapters use:
// SMAppService (macOS 13.0) and the framework's error codes, from Apple's
// ServiceManagement reference. Declarations only.
#ifndef ZEV_SHIM_SERVICEMANAGEMENT_H_
#define ZEV_SHIM_SERVICEMANAGEMENT_H_

#import <Foundation/Foundation.h>

#define ZEV_SHIM_MACOS13 __attribute__((availability(macos, introduced = 13.0)))

typedef NS_ENUM(NSInteger, SMAppServiceStatus) {
  SMAppServiceStatusNotRegistered = 0,
  SMAppServiceStatusEnabled = 1,
  SMAppServiceStatusRequiresApproval = 2,
  SMAppServiceStatusNotFound = 3,
} ZEV_SHIM_MACOS13;

// Error codes of SMAppService's NSErrors (and the older SM calls).
enum {
  kSMErrorInternalFailure = 2,
  kSMErrorInvalidSignature = 3,
  kSMErrorAuthorizationFailure = 4,
  kSMErrorToolNotValid = 5,
  kSMErrorJobNotFound = 6,
  kSMErrorServiceUnavailable = 7,
  kSMErrorJobPlistNotFound = 8,
  kSMErrorJobMustBeEnabled = 9,
  kSMErrorInvalidPlist = 10,
  kSMErrorLaunchDeniedByUser = 11,
  kSMErrorAlreadyRegistered = 12,
};

ZEV_SHIM_MACOS13
@interface SMAppService : NSObject
+ (SMAppService*)loginItemServiceWithIdentifier:(NSString*)identifier;
+ (SMAppService*)agentServiceWithPlistName:(NSString*)plistName;
+ (SMAppService*)daemonServiceWithPlistName:(NSString*)plistName;
@property(class, readonly) SMAppService* mainAppService;
@property(readonly) SMAppServiceStatus status;
- (BOOL)registerAndReturnError:(NSError**)error;
- (BOOL)unregisterAndReturnError:(NSError**)error;
- (void)unregisterWithCompletionHandler:(void (^)(NSError* _Nullable error))handler;
+ (SMAppServiceStatus)statusForLegacyURL:(NSURL*)url;
+ (void)openSystemSettingsLoginItems;
@end

#endif  // ZEV_SHIM_SERVICEMANAGEMENT_H_
