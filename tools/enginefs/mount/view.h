#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "mount/table.h"
#include "mount/window_cache.h"

/// What is shown at a mount point. The table may be replaced at any time; a request goes on with the one that it began with.
class View {
public:
    /// `memory`: how many bytes of decoded data are kept.
    View(std::shared_ptr<const Table> table, std::uint64_t memory)
        : windows_(memory,
                   [this](std::uint64_t inode) {
                       return fs::open_file(this->table()->path(inode).c_str(), EFSMode::READ,
                                            FFSOpenFlags::WHOLE_NAME);
                   }),
          table_(std::move(table)) {}

    std::shared_ptr<const Table> table() const {
        const std::lock_guard guard(lock_);
        return table_;
    }
    void replace(std::shared_ptr<const Table> table) {
        const std::lock_guard guard(lock_);
        table_.swap(table);
    }
    WindowCache& windows() { return windows_; }

private:
    WindowCache windows_;
    mutable std::mutex lock_;  // guards the next
    std::shared_ptr<const Table> table_;
};

/// How it is shown.
struct ViewOptions {
    std::string place;         // the mount point, a full path
    bool allow_other = false;  // other users may look at it
    /// The table after what has changed, or null, asked again and again by a thread of its own. Null: nothing ever does.
    std::function<std::shared_ptr<const Table>(const Table& before)> next = nullptr;
};

/// Shows the view until a signal ends this process's work, or somebody unmounts it. `ready` is called once it can be seen.
/// False, with a word on standard error, when it cannot be shown.
bool show_view(View& view, const ViewOptions& options, const std::function<void()>& ready);

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
