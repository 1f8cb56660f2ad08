#pragma once
// The program's side of a software updater. Linux builds have none: distribution packages update
// the program, so the settings offer no update check there. A platform updater implements this
// interface and reports its findings to an UpdateNotice.
namespace quorvane {

// What the user chose about a found update. Skip comes first, as in the updaters we follow, so
// that a raw choice value of 0 means skip.
enum class UpdateChoice { Skip = 0, Install, Dismiss };

class Updater {
public:
    virtual ~Updater() = default;
    // Starts a user-requested check; the outcome arrives at the notice's callbacks.
    virtual void checkForUpdates() = 0;
};

} // namespace quorvane
