// Sparkle 2 as its public API reference describes it (Sparkle 2.6; classes
// SPUStandardUpdaterController, SPUUpdater, SUAppcastItem, SUAppcast,
// SPUUserUpdateState, SPUStandardUserDriver; protocols SPUUpdaterDelegate and
// SPUStandardUserDriverDelegate). Declarations only, for the macOS compile
// check; a Mac build uses Sparkle.framework's own headers. The delegate
// methods are all optional, as in Sparkle.
#ifndef ZEV_SHIM_SPARKLE_H_
#define ZEV_SHIM_SPARKLE_H_

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@class SPUUpdater, SUAppcast, SUAppcastItem, SPUUserUpdateState, SPUStandardUserDriver;

typedef NS_ENUM(NSInteger, SPUUpdateCheck) {
  SPUUpdateCheckUpdates = 0,
  SPUUpdateCheckUpdatesInBackground = 1,
  SPUUpdateCheckUpdateInformation = 2,
};

typedef NS_ENUM(NSInteger, SPUUserUpdateChoice) {
  SPUUserUpdateChoiceSkip = 0,
  SPUUserUpdateChoiceInstall = 1,
  SPUUserUpdateChoiceDismiss = 2,
};

typedef NS_ENUM(NSInteger, SPUUserUpdateStage) {
  SPUUserUpdateStageNotDownloaded = 0,
  SPUUserUpdateStageDownloaded = 1,
  SPUUserUpdateStageInstalling = 2,
};

// The error domain of Sparkle's NSErrors, and the codes a delegate commonly
// tells apart.
extern NSString* const SUSparkleErrorDomain;
typedef NS_ENUM(OSStatus, SUError) {
  SUNoPublicDSAFoundError = 0001,
  SUInsufficientSigningError = 0002,
  SUInsecureFeedURLError = 0003,
  SUInvalidFeedURLError = 0004,
  SUInvalidUpdaterError = 0005,
  SUInvalidHostBundleIdentifierError = 0006,
  SUInvalidHostVersionError = 0007,
  SUAppcastParseError = 1000,
  SUNoUpdateError = 1001,
  SUAppcastError = 1002,
  SURunningFromDiskImageError = 1003,
  SUResumeAppcastError = 1004,
  SURunningTranslocated = 1005,
  SUWebKitTerminationError = 1006,
  SUReleaseNotesError = 1007,
  SUTemporaryDirectoryError = 2000,
  SUDownloadError = 2001,
  SUUnarchivingError = 3000,
  SUSignatureError = 3001,
  SUValidationError = 3002,
  SUFileCopyFailure = 4000,
  SUAuthenticationFailure = 4001,
  SUMissingUpdateError = 4002,
  SUMissingInstallerToolError = 4003,
  SURelaunchError = 4004,
  SUInstallationError = 4005,
  SUDowngradeError = 4006,
  SUInstallationCanceledError = 4007,
  SUInstallationAuthorizeLaterError = 4008,
  SUNotValidUpdateError = 4009,
  SUAgentInvalidationError = 4010,
  SUInstallationRootInteractiveError = 4011,
  SUInstallationWriteNoPermissionError = 4012,
  SUIncorrectAPIUsageError = 5000,
};

@interface SUAppcastItem : NSObject <NSSecureCoding>
@property(nonatomic, readonly, copy) NSString* versionString;
@property(nonatomic, readonly, copy) NSString* displayVersionString;
@property(nonatomic, readonly, nullable) NSURL* fileURL;
@property(nonatomic, readonly) uint64_t contentLength;
@property(nonatomic, readonly, nullable) NSURL* infoURL;
@property(nonatomic, readonly, getter=isInformationOnlyUpdate) BOOL informationOnlyUpdate;
@property(nonatomic, readonly, copy, nullable) NSString* title;
@property(nonatomic, readonly, copy, nullable) NSString* dateString;
@property(nonatomic, readonly, copy, nullable) NSDate* date;
@property(nonatomic, readonly, nullable) NSURL* releaseNotesURL;
@property(nonatomic, readonly, copy, nullable) NSString* itemDescription;
@property(nonatomic, readonly, nullable) NSURL* fullReleaseNotesURL;
@property(nonatomic, readonly, copy, nullable) NSString* minimumSystemVersion;
@property(nonatomic, readonly) BOOL minimumOperatingSystemVersionIsOK;
@property(nonatomic, readonly, copy, nullable) NSString* maximumSystemVersion;
@property(nonatomic, readonly) BOOL maximumOperatingSystemVersionIsOK;
@property(nonatomic, readonly, copy, nullable) NSString* channel;
@property(nonatomic, readonly, copy) NSString* installationType;
@property(nonatomic, readonly, copy, nullable) NSString* osString;
@property(nonatomic, readonly, getter=isCriticalUpdate) BOOL criticalUpdate;
@property(nonatomic, readonly, getter=isMajorUpgrade) BOOL majorUpgrade;
@property(nonatomic, readonly) BOOL minimumAutoupdateVersionIsOK;
@property(nonatomic, readonly, copy, nullable) NSString* minimumAutoupdateVersion;
@property(nonatomic, readonly, copy, nullable) NSNumber* phasedRolloutInterval;
@property(nonatomic, readonly, copy) NSDictionary* propertiesDictionary;
- (instancetype)init NS_UNAVAILABLE;
@end

@interface SUAppcast : NSObject
@property(readonly, copy) NSArray* items;  // of SUAppcastItem
- (instancetype)init NS_UNAVAILABLE;
@end

@interface SPUUserUpdateState : NSObject <NSSecureCoding>
@property(nonatomic, readonly) SPUUserUpdateStage stage;
@property(nonatomic, readonly) BOOL userInitiated;
- (instancetype)init NS_UNAVAILABLE;
@end

@interface SPUUpdater : NSObject
- (BOOL)startUpdater:(NSError* __autoreleasing _Nullable* _Nullable)error;
- (void)checkForUpdates;
- (void)checkForUpdatesInBackground;
- (void)checkForUpdateInformation;
@property(nonatomic, readonly) BOOL canCheckForUpdates;
@property(nonatomic, readonly) BOOL sessionInProgress;
@property(nonatomic) BOOL automaticallyChecksForUpdates;
@property(nonatomic) NSTimeInterval updateCheckInterval;
@property(nonatomic) BOOL automaticallyDownloadsUpdates;
@property(nonatomic, readonly, nullable) NSURL* feedURL;
- (void)setFeedURL:(nullable NSURL*)feedURL;
- (nullable NSURL*)clearFeedURLFromUserDefaults;
@property(nonatomic, readonly) NSBundle* hostBundle;
@property(nonatomic, readonly, copy, nullable) NSDate* lastUpdateCheckDate;
@property(nonatomic, copy) NSString* userAgentString;
@property(nonatomic, copy, nullable) NSDictionary* httpHeaders;
@property(nonatomic) BOOL sendsSystemProfile;
- (void)resetUpdateCycle;
- (void)resetUpdateCycleAfterShortDelay;
- (instancetype)init NS_UNAVAILABLE;
@end

@protocol SPUUpdaterDelegate <NSObject>
@optional
- (BOOL)updater:(SPUUpdater*)updater
    mayPerformUpdateCheck:(SPUUpdateCheck)updateCheck
                    error:(NSError* __autoreleasing _Nullable* _Nullable)error;
- (NSSet*)allowedChannelsForUpdater:(SPUUpdater*)updater;
- (nullable NSString*)feedURLStringForUpdater:(SPUUpdater*)updater;
- (NSArray*)feedParametersForUpdater:(SPUUpdater*)updater
                sendingSystemProfile:(BOOL)sendingProfile;
- (BOOL)updaterShouldPromptForPermissionToCheckForUpdates:(SPUUpdater*)updater;
- (void)updater:(SPUUpdater*)updater didFinishLoadingAppcast:(SUAppcast*)appcast;
- (nullable SUAppcastItem*)bestValidUpdateInAppcast:(SUAppcast*)appcast
                                         forUpdater:(SPUUpdater*)updater;
- (void)updater:(SPUUpdater*)updater didFindValidUpdate:(SUAppcastItem*)item;
- (void)updaterDidNotFindUpdate:(SPUUpdater*)updater error:(NSError*)error;
- (void)updaterDidNotFindUpdate:(SPUUpdater*)updater;
- (BOOL)updater:(SPUUpdater*)updater
    shouldProceedWithUpdate:(SUAppcastItem*)updateItem
                updateCheck:(SPUUpdateCheck)updateCheck
                      error:(NSError* __autoreleasing _Nullable* _Nullable)error;
- (void)updater:(SPUUpdater*)updater
    userDidMakeChoice:(SPUUserUpdateChoice)choice
            forUpdate:(SUAppcastItem*)updateItem
                state:(SPUUserUpdateState*)state;
- (BOOL)updater:(SPUUpdater*)updater shouldDownloadReleaseNotesForUpdate:(SUAppcastItem*)updateItem;
- (void)updater:(SPUUpdater*)updater
    willDownloadUpdate:(SUAppcastItem*)item
           withRequest:(NSMutableURLRequest*)request;
- (void)updater:(SPUUpdater*)updater didDownloadUpdate:(SUAppcastItem*)item;
- (void)updater:(SPUUpdater*)updater
    failedToDownloadUpdate:(SUAppcastItem*)item
                     error:(NSError*)error;
- (void)userDidCancelDownload:(SPUUpdater*)updater;
- (void)updater:(SPUUpdater*)updater willExtractUpdate:(SUAppcastItem*)item;
- (void)updater:(SPUUpdater*)updater didExtractUpdate:(SUAppcastItem*)item;
- (void)updater:(SPUUpdater*)updater willInstallUpdate:(SUAppcastItem*)item;
- (BOOL)updater:(SPUUpdater*)updater
    shouldPostponeRelaunchForUpdate:(SUAppcastItem*)item
                 untilInvokingBlock:(void (^)(void))installHandler;
- (BOOL)updaterShouldRelaunchApplication:(SPUUpdater*)updater;
- (void)updaterWillRelaunchApplication:(SPUUpdater*)updater;
- (void)updater:(SPUUpdater*)updater willScheduleUpdateCheckAfterDelay:(NSTimeInterval)delay;
- (void)updaterWillNotScheduleUpdateCheck:(SPUUpdater*)updater;
- (nullable NSString*)decryptionPasswordForUpdater:(SPUUpdater*)updater;
- (BOOL)updater:(SPUUpdater*)updater
       willInstallUpdateOnQuit:(SUAppcastItem*)item
    immediateInstallationBlock:(void (^)(void))immediateInstallHandler;
- (void)updater:(SPUUpdater*)updater didAbortWithError:(NSError*)error;
- (void)updater:(SPUUpdater*)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(nullable NSError*)error;
@end

@protocol SPUStandardUserDriverDelegate <NSObject>
@optional
- (void)standardUserDriverWillShowModalAlert;
- (void)standardUserDriverDidShowModalAlert;
@property(nonatomic, readonly) BOOL supportsGentleScheduledUpdateReminders;
- (BOOL)standardUserDriverShouldHandleShowingScheduledUpdate:(SUAppcastItem*)update
                                         andInImmediateFocus:(BOOL)immediateFocus;
- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state;
- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update;
- (void)standardUserDriverWillFinishUpdateSession;
- (BOOL)standardUserDriverShouldShowVersionHistoryForAppcastItem:(SUAppcastItem*)item;
- (void)standardUserDriverShowVersionHistoryForAppcastItem:(SUAppcastItem*)item;
@end

@interface SPUStandardUserDriver : NSObject
- (instancetype)initWithHostBundle:(NSBundle*)hostBundle
                          delegate:(nullable id<SPUStandardUserDriverDelegate>)delegate;
- (instancetype)init NS_UNAVAILABLE;
@end

@interface SPUStandardUpdaterController : NSObject
- (instancetype)initWithStartingUpdater:(BOOL)startUpdater
                        updaterDelegate:(nullable id<SPUUpdaterDelegate>)updaterDelegate
                     userDriverDelegate:
                         (nullable id<SPUStandardUserDriverDelegate>)userDriverDelegate;
- (instancetype)initWithUpdaterDelegate:(nullable id<SPUUpdaterDelegate>)updaterDelegate
                     userDriverDelegate:
                         (nullable id<SPUStandardUserDriverDelegate>)userDriverDelegate;
@property(nonatomic, readonly) SPUUpdater* updater;
@property(nonatomic, readonly) SPUStandardUserDriver* userDriver;
- (void)startUpdater;
- (IBAction)checkForUpdates:(nullable id)sender;
@end

NS_ASSUME_NONNULL_END

#endif  // ZEV_SHIM_SPARKLE_H_
