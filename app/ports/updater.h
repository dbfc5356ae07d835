// The self-updater: finds, downloads and installs new builds of the launcher.
// macOS: Sparkle 2's standard updater controller. Linux: the launcher's own
// updater. The application never lets it install on its own: every
// installation goes through UpdaterDelegate::willInstallUpdateOnQuit (or
// shouldPostponeRelaunchForUpdate), which certifies the update first.
//
// Threading: every call into the Updater and every callback into its delegate
// happens on the main (GUI) thread. Callbacks must not block; long work is
// handed elsewhere and answered later through the continuation given.
#ifndef ZEV_APP_PORTS_UPDATER_H_
#define ZEV_APP_PORTS_UPDATER_H_

#include <functional>
#include <optional>
#include <string>

namespace zev {

// An update the updater has found (Sparkle: SUAppcastItem).
struct UpdateItem {
  // The machine version the update installs (sparkle:version); the daemon
  // reports exactly this version once the update runs.
  std::string versionString;
  // The version shown to people; may equal versionString.
  std::string displayVersionString;
};

// Where the user driver stands when it decides to show an update
// (Sparkle: SPUUserUpdateState). Only passed on; the application ignores it.
struct UserUpdateState {
  bool userInitiated = false;
};

// What the user sees after asking for a check: "checking…", then one of
// "you're up to date", an offer, or an error.
struct UpdateCheckFeedback {
  enum class Kind { checking, upToDate, updateAvailable, error };
  Kind kind = Kind::checking;
  // updateAvailable: the offered update.
  std::optional<UpdateItem> item;
  // error: one line for the user, shown as plain text.
  std::string errorDescription;
  // updateAvailable: when set, calling it (once, on the main thread) accepts
  // the offer; the updater then downloads and comes back through
  // willInstallUpdateOnQuit. Empty when the updater shows its own offer.
  std::function<void()> install;
  // updateAvailable: what is new, as plain text from the feed (untrusted;
  // never rendered as markup), or empty.
  std::string releaseNotes;
};

// The application's side of the updater. Must outlive the Updater's use of it.
class UpdaterDelegate {
 public:
  virtual ~UpdaterDelegate() = default;

  // The updater is about to install `item` when the application quits
  // (Sparkle: updater:willInstallUpdateOnQuit:immediateInstallationBlock:).
  // Returning true takes over the moment of installation: the updater does
  // not install until `immediateInstallation` is called, at most once, on
  // the main thread. If it is never called the update is not installed now.
  virtual bool willInstallUpdateOnQuit(const UpdateItem& item,
                                       std::function<void()> immediateInstallation) = 0;

  // The updater wants to relaunch into an installed-on-demand update (a
  // user-initiated "Install and Relaunch"; Sparkle:
  // updater:shouldPostponeRelaunchForUpdate:untilInvokingBlock:). Returning
  // true postpones it until `resume` is called, at most once, on the main
  // thread; never calling it leaves the update uninstalled.
  virtual bool shouldPostponeRelaunchForUpdate(const UpdateItem& item,
                                               std::function<void()> resume) = 0;

  // Standard-user-driver questions (Sparkle's SPUStandardUserDriverDelegate).
  virtual bool supportsGentleScheduledUpdateReminders() = 0;
  virtual bool standardUserDriverShouldHandleShowingScheduledUpdate(const UpdateItem& item,
                                                                    bool immediateFocus) = 0;
  virtual void standardUserDriverWillHandleShowingUpdate(bool handleShowingUpdate,
                                                         const UpdateItem& item,
                                                         const UserUpdateState& state) = 0;
  virtual void standardUserDriverDidReceiveUserAttention(const UpdateItem& item) = 0;

  // Progress of a user-initiated check, for updaters that have no window of
  // their own (Linux). Sparkle shows its own and does not call this.
  virtual void showUserInitiatedCheckFeedback(const UpdateCheckFeedback& feedback) = 0;
};

class Updater {
 public:
  virtual ~Updater() = default;

  // Creates the updater with `delegate` as updater and user-driver delegate
  // and starts it (scheduled checks may begin). Call once, before the rest.
  virtual void start(UpdaterDelegate& delegate) = 0;

  virtual void setAutomaticallyChecksForUpdates(bool on) = 0;
  virtual void setAutomaticallyDownloadsUpdates(bool on) = 0;

  // The feed address from the updater's own configuration (the bundle's
  // SUFeedURL), or nothing when it has none. The application never sets it.
  virtual std::optional<std::string> feedURL() const = 0;

  // A silent check: an update found goes the automatic way (download, then
  // willInstallUpdateOnQuit). Does nothing when there is no feed. Returns at
  // once.
  virtual void checkForUpdatesInBackground() = 0;

  // The user asked: shows progress and the outcome (through the updater's own
  // window, or showUserInitiatedCheckFeedback). Returns at once.
  virtual void checkForUpdates() = 0;
};

}  // namespace zev

#endif  // ZEV_APP_PORTS_UPDATER_H_
