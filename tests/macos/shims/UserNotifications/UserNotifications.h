// UserNotifications as the macOS 14 SDK declares what the adapters use
// (macOS 10.14 and later), from Apple's UserNotifications reference.
// Declarations only.
#ifndef ZEV_SHIM_USERNOTIFICATIONS_H_
#define ZEV_SHIM_USERNOTIFICATIONS_H_

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, UNAuthorizationOptions){
    UNAuthorizationOptionBadge = (1 << 0),
    UNAuthorizationOptionSound = (1 << 1),
    UNAuthorizationOptionAlert = (1 << 2),
    UNAuthorizationOptionCarPlay = (1 << 3),
    UNAuthorizationOptionCriticalAlert = (1 << 4),
    UNAuthorizationOptionProvidesAppNotificationSettings = (1 << 5),
    UNAuthorizationOptionProvisional = (1 << 6),
};

typedef NS_OPTIONS(NSUInteger, UNNotificationPresentationOptions){
    UNNotificationPresentationOptionBadge = (1 << 0),
    UNNotificationPresentationOptionSound = (1 << 1),
    UNNotificationPresentationOptionAlert = (1 << 2),  // deprecated from macOS 11
    UNNotificationPresentationOptionList = (1 << 3),   // macOS 11
    UNNotificationPresentationOptionBanner = (1 << 4), // macOS 11
};

@interface UNNotificationContent : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
@property(nonatomic, readonly, copy) NSString* title;
@property(nonatomic, readonly, copy) NSString* subtitle;
@property(nonatomic, readonly, copy) NSString* body;
@property(nonatomic, readonly, copy) NSDictionary* userInfo;
@property(nonatomic, readonly, copy) NSString* threadIdentifier;
@end

@interface UNMutableNotificationContent : UNNotificationContent
@property(nonatomic, copy) NSString* title;
@property(nonatomic, copy) NSString* subtitle;
@property(nonatomic, copy) NSString* body;
@property(nonatomic, copy) NSDictionary* userInfo;
@property(nonatomic, copy) NSString* threadIdentifier;
@end

@interface UNNotificationTrigger : NSObject <NSCopying, NSSecureCoding>
@property(nonatomic, readonly) BOOL repeats;
- (instancetype)init NS_UNAVAILABLE;
@end

@interface UNNotificationRequest : NSObject <NSCopying, NSSecureCoding>
@property(nonatomic, readonly, copy) NSString* identifier;
@property(nonatomic, readonly, copy) UNNotificationContent* content;
@property(nonatomic, readonly, copy, nullable) UNNotificationTrigger* trigger;
+ (instancetype)requestWithIdentifier:(NSString*)identifier
                              content:(UNNotificationContent*)content
                              trigger:(nullable UNNotificationTrigger*)trigger;
- (instancetype)init NS_UNAVAILABLE;
@end

@interface UNNotification : NSObject <NSCopying, NSSecureCoding>
@property(nonatomic, readonly, copy) NSDate* date;
@property(nonatomic, readonly, copy) UNNotificationRequest* request;
- (instancetype)init NS_UNAVAILABLE;
@end

@interface UNNotificationResponse : NSObject <NSCopying, NSSecureCoding>
@property(nonatomic, readonly, copy) UNNotification* notification;
@property(nonatomic, readonly, copy) NSString* actionIdentifier;
- (instancetype)init NS_UNAVAILABLE;
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
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
    openSettingsForNotification:(nullable UNNotification*)notification;
@end

@interface UNUserNotificationCenter : NSObject
@property(nonatomic, nullable, weak) id<UNUserNotificationCenterDelegate> delegate;
+ (UNUserNotificationCenter*)currentNotificationCenter;
- (void)requestAuthorizationWithOptions:(UNAuthorizationOptions)options
                      completionHandler:(void (^)(BOOL granted, NSError* _Nullable error))completionHandler;
- (void)addNotificationRequest:(UNNotificationRequest*)request
         withCompletionHandler:(nullable void (^)(NSError* _Nullable error))completionHandler;
- (void)removeAllDeliveredNotifications;
- (instancetype)init NS_UNAVAILABLE;
@end

NS_ASSUME_NONNULL_END

#endif  // ZEV_SHIM_USERNOTIFICATIONS_H_
