// The part of Sparkle 2's public API (Sparkle 2.6) the updater adapter uses,
// with Sparkle's own signatures: SPUStandardUpdaterController, SPUUpdater,
// SUAppcastItem, SPUUserUpdateState and the delegate methods the bridge
// implements (all optional, as in Sparkle). Declarations only, for the macOS
// compile check; a Mac build uses Sparkle.framework's own headers. A method
// the adapter starts to use is added here as Sparkle declares it.
#ifndef ZEV_SHIM_SPARKLE_H_
#define ZEV_SHIM_SPARKLE_H_

#import <AppKit/AppKit.h>  // IBAction, and Foundation

NS_ASSUME_NONNULL_BEGIN

@interface SUAppcastItem : NSObject
@property(nonatomic, readonly, copy) NSString* versionString;
@property(nonatomic, readonly, copy) NSString* displayVersionString;
@end

@interface SPUUserUpdateState : NSObject
@property(nonatomic, readonly) BOOL userInitiated;
@end

@interface SPUUpdater : NSObject
// Sparkle 1's checkForUpdatesInBackground: (with a sender) is gone.
- (void)checkForUpdatesInBackground;
@property(nonatomic) BOOL automaticallyChecksForUpdates;
@property(nonatomic) BOOL automaticallyDownloadsUpdates;
@property(nonatomic, readonly, nullable) NSURL* feedURL;
@end

@protocol SPUUpdaterDelegate <NSObject>
@optional
- (BOOL)updater:(SPUUpdater*)updater
    shouldPostponeRelaunchForUpdate:(SUAppcastItem*)item
                 untilInvokingBlock:(void (^)(void))installHandler;
- (BOOL)updater:(SPUUpdater*)updater
       willInstallUpdateOnQuit:(SUAppcastItem*)item
    immediateInstallationBlock:(void (^)(void))immediateInstallHandler;
@end

@protocol SPUStandardUserDriverDelegate <NSObject>
@optional
@property(nonatomic, readonly) BOOL supportsGentleScheduledUpdateReminders;
- (BOOL)standardUserDriverShouldHandleShowingScheduledUpdate:(SUAppcastItem*)update
                                         andInImmediateFocus:(BOOL)immediateFocus;
- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state;
- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update;
@end

@interface SPUStandardUpdaterController : NSObject
- (instancetype)initWithStartingUpdater:(BOOL)startUpdater
                        updaterDelegate:(nullable id<SPUUpdaterDelegate>)updaterDelegate
                     userDriverDelegate:
                         (nullable id<SPUStandardUserDriverDelegate>)userDriverDelegate;
@property(nonatomic, readonly) SPUUpdater* updater;
- (IBAction)checkForUpdates:(nullable id)sender;
@end

NS_ASSUME_NONNULL_END

#endif  // ZEV_SHIM_SPARKLE_H_
