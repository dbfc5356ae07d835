// A method no shim declares does not compile (ARC makes it an error): here
// Sparkle 1's checkForUpdatesInBackground:, gone from Sparkle 2. The same
// holds for a misspelt Apple method.
// expect: no visible @interface for 'SPUUpdater'
#import <Sparkle/Sparkle.h>
void check(SPUStandardUpdaterController* controller) { [controller.updater checkForUpdatesInBackground:nil]; }
