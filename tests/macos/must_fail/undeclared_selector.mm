// The Sparkle shim declares Sparkle 2's API only: Sparkle 1 names fail.
// expect: no visible @interface for 'SPUUpdater'
#import <Sparkle/Sparkle.h>
void check(SPUStandardUpdaterController* controller) { [controller.updater checkForUpdatesInBackground:nil]; }
