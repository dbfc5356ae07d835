// The part of UserNotifications (macOS 10.14 and later) the notifier uses,
// with the macOS 14 SDK's signatures and nullability, from Apple's
// UserNotifications reference. Declarations only; a call the notifier starts
// to make is added here as the SDK declares it.
#ifndef ZEV_SHIM_USERNOTIFICATIONS_H_
#define ZEV_SHIM_USERNOTIFICATIONS_H_

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, UNAuthorizationOptions){
    UNAuthorizationOptionSound = (1 << 1),
    UNAuthorizationOptionAlert = (1 << 2),
};

typedef NS_OPTIONS(NSUInteger, UNNotificationPresentationOptions){
    UNNotificationPresentationOptionList = (1 << 3),    // macOS 11
    UNNotificationPresentationOptionBanner = (1 << 4),  // macOS 11
};

@interface UNNotificationContent : NSObject
@property(nonatomic, readonly, copy) NSDictionary* userInfo;
@end

@interface UNMutableNotificationContent : UNNotificationContent
@property(nonatomic, copy) NSString* title;
@property(nonatomic, copy) NSString* body;
@property(nonatomic, copy) NSDictionary* userInfo;
@end

@class UNNotificationTrigger;

@interface UNNotificationRequest : NSObject
@property(nonatomic, readonly, copy) UNNotificationContent* content;
+ (instancetype)requestWithIdentifier:(NSString*)identifier
                              content:(UNNotificationContent*)content
                              trigger:(nullable UNNotificationTrigger*)trigger;
@end

@interface UNNotification : NSObject
@property(nonatomic, readonly, copy) UNNotificationRequest* request;
@end

@interface UNNotificationResponse : NSObject
@property(nonatomic, readonly, copy) UNNotification* notification;
@end

@class UNUserNotificationCenter;

@protocol UNUserNotificationCenterDelegate <NSObject>
@optional
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions options))completionHandler;
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
    didReceiveNotificationResponse:(UNNotificationResponse*)response
             withCompletionHandler:(void (^)(void))completionHandler;
@end

@interface UNUserNotificationCenter : NSObject
@property(nonatomic, nullable, weak) id<UNUserNotificationCenterDelegate> delegate;
+ (UNUserNotificationCenter*)currentNotificationCenter;
// There is one centre per application: currentNotificationCenter, never a new one.
- (instancetype)init __attribute__((unavailable));  // NS_UNAVAILABLE (empty in GNUstep)
- (void)requestAuthorizationWithOptions:(UNAuthorizationOptions)options
                      completionHandler:(void (^)(BOOL granted, NSError* _Nullable error))completionHandler;
- (void)addNotificationRequest:(UNNotificationRequest*)request
         withCompletionHandler:(nullable void (^)(NSError* _Nullable error))completionHandler;
@end

NS_ASSUME_NONNULL_END

#endif  // ZEV_SHIM_USERNOTIFICATIONS_H_
