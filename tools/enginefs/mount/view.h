#pragma once

#include <functional>
#include <string>

#include "mount/table.h"
#include "mount/window_cache.h"

/// What is shown at a mount point.
struct View {
    const Table& table;
    WindowCache& windows;
};

/// How it is shown.
struct ViewOptions {
    std::string place;         // the mount point, a full path
    bool allow_other = false;  // other users may look at it
};

/// Shows the view until a signal ends this process's work, or somebody unmounts it. `ready` is called once it can be seen.
/// False, with a word on standard error, when it cannot be shown.
bool show_view(const View& view, const ViewOptions& options, const std::function<void()>& ready);

/// Goes on in a process of its own, without the standard streams of this one from `told` on. The caller's process waits and
/// ends with status 0 when it is told that all is well, and with 1 when the other one ends before.
class Detached {
public:
    /// False, with a word on standard error, when the system starts no process.
    bool start();
    /// All is well. Nothing happens in a process that was not started so.
    void tell();

private:
    int pipe_ = -1;
};
