// The view as a file system of the kernel, by the low-level interface of libfuse: inodes are those of the table.
//
// Nothing changes while it is mounted, or the kernel is told what does, so it may keep names, attributes, listings and
// bytes; opening needs no answer at all, and it asks for one but once. What remains is lookups, listings and reads.

#include "mount/fuse/view.h"

#define FUSE_USE_VERSION 35
#include <fuse_lowlevel.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "mount/window_cache.h"

namespace {

constexpr double kept_seconds = 3600;
constexpr double doubtful_seconds = 1;  // of names that nobody can tell the kernel about when they change
constexpr std::uint64_t block_size = 4096;
constexpr std::chrono::milliseconds poll_every{100};

WindowCache::File cached(const Table::Node& file) {
    return {.id = file.inode, .size = file.facts.size, .is_decoded = file.facts.is_decoded};
}

/// What is shown. The table may be replaced at any time; a request goes on with the one that it began with.
class View {
public:
    View(std::shared_ptr<const Table> table, std::uint64_t memory, const NextTable& next)
        : next_table(next),
          windows(memory,
                  [this](std::uint64_t inode) {
                      return fs::open_file(this->table()->path(inode).c_str(), EFSMode::READ, FFSOpenFlags::WHOLE_NAME);
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

    /// Who reads the files of a directory one after another finds the next one decoded, while another core is idle.
    void prepare_next(const Table& table, const Table::Node& file) {
        const std::uint64_t next = table.next(file.inode);
        if (next_file_.exchange(next) != file.inode || next == 0) return;
        try {
            windows.prepare(cached(*table.find(next)));
        } catch (const std::bad_alloc&) {  // who reads it is told
        }
    }

    const NextTable& next_table;
    WindowCache windows;

private:
    mutable std::mutex lock_;  // guards the next
    std::shared_ptr<const Table> table_;
    std::atomic<std::uint64_t> next_file_ = 0;  // behind the latest that was read from its start to its end
};

View& view_of(fuse_req_t request) { return *static_cast<View*>(fuse_req_userdata(request)); }
std::shared_ptr<const Table> table_of(fuse_req_t request) { return view_of(request).table(); }

/// No exception goes through libfuse.
template <class Answer>
void answer(fuse_req_t request, const Answer& make) {
    try {
        if (const int error = make(); error != 0) fuse_reply_err(request, error);
    } catch (const std::bad_alloc&) {
        fuse_reply_err(request, ENOMEM);
    }
}

timespec time_of(std::int64_t nanoseconds) {
    const std::int64_t part = (nanoseconds % 1'000'000'000 + 1'000'000'000) % 1'000'000'000;
    return {.tv_sec = (nanoseconds - part) / 1'000'000'000, .tv_nsec = part};
}

struct stat attributes_of(const Table& table, const Table::Node& node) {
    struct stat out {};
    out.st_ino = node.inode;
    out.st_mode = node.is_directory ? S_IFDIR | 0555 : S_IFREG | 0444;
    out.st_nlink = 1;  // of a directory: not known, so that nobody counts on it
    out.st_uid = getuid();
    out.st_gid = getgid();
    out.st_size = static_cast<off_t>(node.facts.size);
    out.st_blksize = block_size;
    out.st_blocks = static_cast<blkcnt_t>((node.facts.size + 511) / 512);
    out.st_mtim = out.st_ctim = out.st_atim =
        node.is_directory ? timespec{.tv_sec = table.made(), .tv_nsec = 0} : time_of(node.facts.time);
    return out;
}

fuse_entry_param entry_of(const Table& table, std::uint64_t inode) {
    fuse_entry_param entry{};
    entry.entry_timeout = entry.attr_timeout = kept_seconds;
    if (const Table::Node* const node = table.find(inode)) {
        entry.ino = inode;
        entry.attr = attributes_of(table, *node);
    }
    return entry;
}

void start(void*, fuse_conn_info* connection) {
    // Attributes come with the names, always.
    connection->want |= connection->capable & (FUSE_CAP_READDIRPLUS | FUSE_CAP_PARALLEL_DIROPS | FUSE_CAP_ASYNC_READ);
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_READDIRPLUS_AUTO);
}

/// A name that is not there has inode 0, which the kernel remembers as well. Where things change it is told of names as
/// they are listed; of other spellings it must ask again.
void look_up(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answer(request, [&] {
        const std::shared_ptr<const Table> table = table_of(request);
        const std::uint64_t inode = table->lookup(parent, name);
        fuse_entry_param entry = entry_of(*table, inode);
        if (view_of(request).next_table && (inode == 0 || table->name(*table->find(inode)) != name))
            entry.entry_timeout = doubtful_seconds;
        return fuse_reply_entry(request, &entry), 0;
    });
}

void get_attributes(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    const std::shared_ptr<const Table> table = table_of(request);
    const fuse_entry_param entry = entry_of(*table, inode);
    if (entry.ino == 0)
        fuse_reply_err(request, ENOENT);
    else
        fuse_reply_attr(request, &entry.attr, kept_seconds);
}

/// An older kernel wants an answer to every opening.
void open(fuse_req_t request, fuse_ino_t, fuse_file_info*) { fuse_reply_err(request, ENOSYS); }

/// The places of a listing: 0 is ".", 1 is "..", and the children follow.
std::uint64_t inode_at(const Table& table, std::uint64_t directory, std::uint64_t place) {
    if (place == 0) return directory;
    return place == 1 ? table.parent(directory) : table.child(directory, place - 2);
}

void list(fuse_req_t request, fuse_ino_t directory, std::size_t size, off_t offset, fuse_file_info*) {
    answer(request, [&] {
        const std::shared_ptr<const Table> table = table_of(request);
        if (table->find(directory) == nullptr) return ENOENT;
        std::vector<char> out(size);
        std::size_t used = 0;
        auto place = static_cast<std::uint64_t>(offset);
        while (const std::uint64_t inode = inode_at(*table, directory, place)) {
            fuse_entry_param entry = entry_of(*table, inode);
            const std::string name = place == 0   ? "."
                                     : place == 1 ? ".."
                                                  : std::string(table->name(*table->find(inode)));
            if (place < 2) entry.ino = 0;  // the kernel counts no lookup of them
            const std::size_t wanted = fuse_add_direntry_plus(request, out.data() + used, size - used, name.c_str(),
                                                              &entry, static_cast<off_t>(++place));
            if (wanted > size - used) break;
            used += wanted;
        }
        return fuse_reply_buf(request, out.data(), used), 0;
    });
}

/// Says why, unless that was said before.
int failed_to_read(const Table& table, const Table::Node& file) {
    if (fs::last_error().code != EFSError::NONE || !file.facts.is_decoded)
        fail_with_last_error(table.path(file.inode), "it has become shorter since it was mounted");
    return EIO;
}

void read(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset, fuse_file_info*) {
    View& view = view_of(request);
    const std::shared_ptr<const Table> table = view.table();
    const Table::Node* const file = table->find(inode);
    answer(request, [&] {
        if (file == nullptr || file->is_directory) return EIO;
        thread_local std::vector<char> out;
        out.resize(std::max(out.size(), size));
        const std::uint64_t got =
            view.windows.read(cached(*file), static_cast<std::uint64_t>(offset), out.data(), size);
        if (got == failed) return failed_to_read(*table, *file);
        return fuse_reply_buf(request, out.data(), got), 0;
    });
    if (file != nullptr && offset == 0 && size >= file->facts.size) view.prepare_next(*table, *file);
}

void tell_size(fuse_req_t request, fuse_ino_t) {
    const std::shared_ptr<const Table> table = table_of(request);
    struct statvfs out {};
    out.f_bsize = out.f_frsize = block_size;
    out.f_blocks = (table->bytes() + block_size - 1) / block_size;
    out.f_files = table->nodes().size();
    out.f_namemax = longest_path;
    fuse_reply_statfs(request, &out);
}

constexpr fuse_lowlevel_ops operations() {
    fuse_lowlevel_ops out{};
    out.init = start;
    out.lookup = look_up;
    out.getattr = get_attributes;
    out.open = open;
    out.opendir = open;
    out.readdirplus = list;
    out.read = read;
    out.statfs = tell_size;
    return out;
}

std::string said;  // by libfuse, until the view is shown

void take_message(fuse_log_level, const char* format, va_list arguments) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    said = text;
    while (said.ends_with('\n')) said.pop_back();
}

/// Why libfuse could not mount, with what is mostly the reason.
std::string reason_of_failure() {
    constexpr const char* device = "/dev/fuse";
    std::string reason = said.empty() ? "libfuse gave no reason" : said;
    std::error_code unknown;
    if (std::filesystem::is_character_file(device, unknown)) return reason;
    return reason + "; " + device + ", the kernel's side of it, is missing here";
}

struct EndSession {
    void operator()(fuse_session* session) const {
        fuse_remove_signal_handlers(session);
        fuse_session_unmount(session);
        fuse_session_destroy(session);
    }
};

void forget(fuse_session* session, View& view, std::uint64_t inode) {
    view.windows.forget(inode);
    fuse_lowlevel_notify_inval_inode(session, inode, 0, 0);
}

/// A name that comes or goes changes the listing of its directory.
void forget_name(fuse_session* session, const Table& table, const Table::Node& node) {
    const std::uint64_t directory = table.parent(node.inode);
    const std::string name(table.name(node));
    fuse_lowlevel_notify_inval_entry(session, directory, name.c_str(), name.size());
    fuse_lowlevel_notify_inval_inode(session, directory, 0, 0);
}

/// Replaces the table when something has changed, and then tells the kernel what it must not use any more.
void take_up_changes(fuse_session* session, View& view) {
    const std::shared_ptr<const Table> before = view.table(), after = view.next_table(*before);
    if (after == nullptr) return;
    view.replace(after);
    for (const Table::Node& was : before->nodes()) {
        const Table::Node* const is = after->find(was.inode);
        if (is == nullptr || before->name(was) != after->name(*is)) forget_name(session, *before, was);
        if (is == nullptr || is->facts.source != was.facts.source || is->facts.version != was.facts.version)
            forget(session, view, was.inode);
    }
    for (const Table::Node& is : after->nodes())
        if (before->find(is.inode) == nullptr) forget_name(session, *after, is);
}

/// Ends with what it returns. Signals are the main thread's.
std::jthread start_following(fuse_session* session, View& view) {
    if (!view.next_table) return {};
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::jthread thread([session, &view](const std::stop_token& stop) {
        std::mutex lock;
        std::unique_lock guard(lock);
        std::condition_variable_any ended;
        while (!ended.wait_for(guard, stop, poll_every, [&stop] { return stop.stop_requested(); })) {
            try {
                take_up_changes(session, view);
            } catch (const std::exception& error) {
                fail("--follow", error.what());
            } catch (const CommandFailed&) {  // and has said so
            }
        }
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

}  // namespace

bool show_view(std::shared_ptr<const Table> table, const Mounting& given, const NextTable& next,
               const std::function<void()>& ready) {
    View view(std::move(table), given.memory_mib << 20, next);
    const std::string place = full_native_path(given.place);
    std::string how = "ro,default_permissions,nosuid,nodev,fsname=enginefs,subtype=enginefs";
    if (given.allow_other) how += ",allow_other";
    char program[] = "enginefs", option[] = "-o";
    char* words[] = {program, option, how.data()};
    fuse_args arguments = FUSE_ARGS_INIT(3, words);
    constexpr fuse_lowlevel_ops ops = operations();
    fuse_set_log_func(take_message);
    const std::unique_ptr<fuse_session, EndSession> session(fuse_session_new(&arguments, &ops, sizeof ops, &view));
    fuse_opt_free_args(&arguments);
    if (session == nullptr || fuse_set_signal_handlers(session.get()) != 0 ||
        fuse_session_mount(session.get(), place.c_str()) != 0)
        return fail(place, "it cannot be mounted: " + reason_of_failure());
    fuse_set_log_func(nullptr);
    malloc_trim(0);  // what gathering the names took
    const std::jthread following = start_following(session.get(), view);
    ready();
    fuse_loop_config threads{.clone_fd = 0, .max_idle_threads = 10};
    const int ended = fuse_session_loop_mt(session.get(), &threads);
    return ended >= 0 || fail(place, std::string("the view ended: ") + std::strerror(-ended));
}
