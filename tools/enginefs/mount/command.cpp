// mount: the merged view as a directory, for any program.

#include <system_error>

#include "command.h"
#include "mount/fuse/sources.h"
#include "mount/view.h"

namespace {

namespace stdfs = std::filesystem;

struct Given {
    const SessionOptions* session = nullptr;
    std::string place;
    std::uint64_t memory_mib = 64;
    bool detach = false;
    bool allow_other = false;
    bool follow = false;
};

#if defined(ENGINEFS_WITH_FUSE)

/// What a mount point would hide could be what a source reads.
bool check_place(const std::string& told, const std::string& full) {
    std::error_code error;
    const stdfs::file_type type = stdfs::status(fs::to_path(full), error).type();
    if (error == std::errc::not_connected)
        return fail(told, "the process of a view there was killed; fusermount3 -u " + told + " clears it away");
    if (type == stdfs::file_type::not_found || (!error && type != stdfs::file_type::directory))
        return fail(told, "there is no such directory");
    const bool is_empty = !error && stdfs::is_empty(fs::to_path(full), error);
    if (error) return fail(told, "it cannot be read: " + error.message());
    return is_empty || fail(told, "it is not empty");
}

void tell_hidden(const Table& table) {
    for (const std::string& hidden : table.hidden())
        note(hidden, hidden.ends_with('/') ? "a file of an earlier source hides this directory"
                                           : "a directory of an earlier source hides this file");
}

bool mount(const Given& given) {
    ViewOptions options{
        .place = full_native_path(given.place), .memory = given.memory_mib << 20, .allow_other = given.allow_other};
    if (!check_place(given.place, options.place)) return false;
    Detached detached;  // before anything has a thread, since only one goes along
    if (given.detach && !detached.start()) return false;
    // Names of the table alone: the disk itself must not answer for one that is gone.
    SessionOptions options_of_session = *given.session;
    options_of_session.fallback = false;
    Session session;
    if (!session.mount(options_of_session)) return false;
    Sources sources(options_of_session);
    if (given.follow && !watch_sources()) return false;
    const std::shared_ptr<const Table> table = sources.table();
    tell_hidden(*table);
    if (given.follow)
        options.next = [&](const Table& before) { return sources.changes(before); };
    else
        sources.forget();
    return show_view(table, options, [&] {
        print(given.place + ": " + counted(table->files(), "file", "files") + "\n");
        finish_output(exit_ok);
        detached.tell();
    });
}

#else

bool mount(const Given&) { return fail("mount", "not available: built without FUSE"); }

#endif

}  // namespace

void add_mount_command(Commands& commands) {
    const auto added = commands.add("mount", "Show the merged files as a directory that any program can read (Linux)",
                                    mount, /*needs_mount*/ false);
    added.given.session = &commands.session();
    added->add_option("DIR", added.given.place, "An empty directory")->required();
    added->add_flag("--detach", added.given.detach, "Go on in the background, and return once it can be read");
    added->add_flag("--follow", added.given.follow, "Show what changes on the disk meanwhile");
    added->add_option("--memory", added.given.memory_mib, "How many MiB of decoded data to keep (default: 64)")
        ->type_name("MIB")
        ->check(CLI::Range(1, 1 << 20));
    added->add_flag("--allow-other", added.given.allow_other, "Let other users read it too");
}
