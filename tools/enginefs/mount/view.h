#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "mount/table.h"

/// How a table is shown.
struct ViewOptions {
    std::string place;         // the mount point, a full path
    std::uint64_t memory = 0;  // how many bytes of decoded data are kept
    bool allow_other = false;  // other users may look at it
    /// The table after what has changed, or null, asked again and again by a thread of its own. Null: nothing ever does.
    std::function<std::shared_ptr<const Table>(const Table& before)> next = nullptr;
};

/// Shows the mounted sources until a signal ends this process's work, or somebody unmounts them. `ready` is called once
/// they can be seen. False, with a word on standard error, when they cannot be shown.
bool show_view(std::shared_ptr<const Table> table, const ViewOptions& options, const std::function<void()>& ready);

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
