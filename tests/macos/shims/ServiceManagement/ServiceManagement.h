// The part of ServiceManagement the service manager uses: SMAppService
// (macOS 13.0 and later) with the macOS 14 SDK's signatures, from Apple's
// ServiceManagement reference. Declarations only; a call the adapter starts
// to make is added here as the SDK declares it.
#ifndef ZEV_SHIM_SERVICEMANAGEMENT_H_
#define ZEV_SHIM_SERVICEMANAGEMENT_H_

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_ENUM(NSInteger, SMAppServiceStatus) {
  SMAppServiceStatusNotRegistered = 0,
  SMAppServiceStatusEnabled = 1,
  SMAppServiceStatusRequiresApproval = 2,
  SMAppServiceStatusNotFound = 3,
};

@interface SMAppService : NSObject
+ (SMAppService*)agentServiceWithPlistName:(NSString*)plistName;
@property(class, readonly) SMAppService* mainAppService;
@property(readonly) SMAppServiceStatus status;
- (BOOL)registerAndReturnError:(NSError**)error;
- (BOOL)unregisterAndReturnError:(NSError**)error;
@end

NS_ASSUME_NONNULL_END

#endif  // ZEV_SHIM_SERVICEMANAGEMENT_H_
