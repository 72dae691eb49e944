#pragma once

// Sources that follow the disk: what other programs change below a watched directory, or in place of a watched pack, is
// taken up when the host polls. There is no callback and no thread of the library's own.

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/kernel/ztl.h>

/// One change of a watched source.
struct SFsChange {
    enum KIND : std::uint32_t {
        CREATED,  // the source holds the name now
        CONTENT,  // it held the name before, too; what lies there was written or replaced
        REMOVED,  // the source no longer holds the name
        LOST,     // ask again for everything of this source: changes were missed, or a pack was replaced
    };
    KIND kind = LOST;
    fs::string name;    // as fs::open takes it, in lower case; "" for LOST
    fs::string source;  // the source's path: directory and file name as fs::get_sources tells them, put together
    /// Whether fs::open of the name now answers other bytes: true where no source that is asked earlier holds the name.
    /// Always true for LOST.
    bool winner_changed = false;
};

namespace fs {

/// Makes the source of this path follow the disk, or ends that; each of them where several have it.
///
/// source_path  as it was given to add_source, or the root's. Directories, and packs: a pack is not read again by itself;
///              when its file is replaced, one LOST says so, and reload_source takes the new one.
/// Returns      false when nothing is watched (with `on`), or no such source is registered. fs::last_error has the reason;
///              the system's own limits are named there ("fs.inotify.max_user_watches"). A source is watched as a whole or
///              not at all; a second call with the same `on` changes nothing.
/// From when    what changed between the mount and this call is found, too, and told by the next polls.
/// Not seen     what lies behind a link to a file, and on Windows behind links to directories; that a directory above the
///              root was renamed.
/// Ends         by itself with the source or fs::shutdown.
/// Cost         one watch of the system for each directory (Linux), or one for each source (Windows); nothing is listed.
/// Threads      any; not from a source or callback that is being asked.
ENGINE_FS_API bool watch(const char* source_path, bool on);

/// Takes up what has changed on the disk since the last poll: the sources' tables follow, and `out` is replaced by what
/// was taken up, one entry a name, in the order of names for each source. Until a poll has taken a change up, every answer
/// of fs:: is the one from before, but that bytes of files are read from the disk as they are.
///
/// quiet_ms  A name waits until it was not touched for so long, so that a file that is being written is told once; ten
///           times that at most. 0: nothing waits. Time passes by polls: what a poll hears of counts as touched then.
/// Changes   an editor's writing beside and renaming is one CONTENT of the name; a renamed file is REMOVED and CREATED; so
///           are all names below a directory that was moved. A new name comes last among those that match by their end.
///           When the system has dropped events the source is read again, and the differences come with one LOST. After
///           fs::refresh of a watched source one LOST stands for what it took up. What this process changes through fs::
///           is known to the table already: a file that it removed is not told.
/// Returns   false when something could not be looked at, with the reason in fs::last_error. `out` then holds what was
///           taken up all the same; no change is lost, and the next poll tries the rest again.
/// Cost      far below a microsecond when nothing has changed. The disk is looked at without the registry's lock, which is
///           then held exclusive once for the whole batch.
/// Threads   any, one at a time: a second caller waits. Not from a source or callback that is being asked.
ENGINE_FS_API bool poll_changes(ztl::vector<SFsChange>& out, std::uint32_t quiet_ms = 50);

/// Reads the sources of this path anew in their places in the order: a pack from the file that now has its name, a directory
/// as fs::refresh does. Files of a replaced pack that are open stay readable and give the old bytes; a pack that was
/// written over in place takes the bytes of its open files with it.
///
/// Returns  false when no such source is registered or it cannot be read; everything is then as it was. False also where
///          some directory cannot be listed: its names are kept, and all else is taken up.
/// Threads  any; the pack is read without the registry's lock, which is then taken exclusive.
ENGINE_FS_API bool reload_source(const char* source_path);

}  // namespace fs
