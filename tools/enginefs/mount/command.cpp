// mount: the merged view as a directory, for any program.

#include "command.h"
#include "mount/fuse/view.h"

#if !defined(ENGINEFS_WITH_FUSE)
bool mount(const Mounting&) { return fail("mount", "not available: built without FUSE"); }
#endif

void add_mount_command(Commands& commands) {
    const auto added = commands.add("mount", "Show the merged files as a directory that any program can read (Linux)",
                                    mount, /*needs_mount*/ false);
    added.given.session = &commands.session();
    added->add_option("DIR", added.given.place, "An empty directory")->required();
    added->add_flag("--detach", added.given.detach, "Go on in the background, and return once it can be read");
    added->add_flag("--follow", added.given.follow, "Show what changes on the disk meanwhile");
    add_option(added.app, "--memory MIB", added.given.memory_mib, "How many MiB of decoded data to keep (default: 64)")
        ->check(CLI::Range(1, 1 << 20));
    added->add_flag("--allow-other", added.given.allow_other, "Let other users read it too");
}
