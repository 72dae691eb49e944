#include "engine/platform/watcher.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "engine/platform/posix/system.h"

// A watch is of a directory's inode, so that two ways to one directory have one number. Its mask is that of its latest
// add: a watch that was to tell of its own end keeps doing so, because that is asked for by IN_MASK_ADD.

namespace platform {

namespace {

constexpr std::uint32_t names = IN_CREATE | IN_MOVED_TO | IN_MODIFY | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM |
                                IN_ATTRIB | IN_ONLYDIR | IN_EXCL_UNLINK | IN_MASK_ADD;
constexpr std::uint32_t own_end = IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::size_t buffer_size = 64 * 1024;
constexpr int most_reads = 256;  // in one drain, so that it ends while others go on writing

/// What an event means: the first of these bits that it has.
constexpr std::pair<std::uint32_t, WatchEvent::Kind> meanings[] = {
    {IN_Q_OVERFLOW, WatchEvent::Kind::DROPPED},
    {own_end | IN_UNMOUNT, WatchEvent::Kind::GONE},
    {IN_CREATE, WatchEvent::Kind::CREATED},
    {IN_MOVED_TO, WatchEvent::Kind::ARRIVED},
    {IN_DELETE | IN_MOVED_FROM, WatchEvent::Kind::REMOVED},
    {IN_ATTRIB, WatchEvent::Kind::RIGHTS},
    {IN_MODIFY | IN_CLOSE_WRITE, WatchEvent::Kind::CHANGED},
};

/// False for what callers need not know.
bool translate(const inotify_event& event, WatchEvent& out) {
    using Kind = WatchEvent::Kind;
    const auto* const meaning =
        std::ranges::find_if(meanings, [&](const auto& row) { return (event.mask & row.first) != 0; });
    if (meaning == std::end(meanings)) return false;
    out = {.watch = event.wd,
           .kind = meaning->second,
           .is_directory = (event.mask & IN_ISDIR) != 0,
           .name = event.len != 0 ? std::string_view(event.name) : std::string_view()};
    if (out.kind == Kind::DROPPED || out.kind == Kind::GONE) return true;
    const bool has_name = !out.name.empty() && out.name.find('\\') == std::string_view::npos;
    return has_name && (out.kind != Kind::RIGHTS || out.is_directory);
}

/// Whether it says of a file that content was written, as what came just before it has said already.
bool repeats(const inotify_event* before, const inotify_event& event) {
    constexpr std::uint32_t written = IN_MODIFY | IN_CLOSE_WRITE;
    return before != nullptr && (event.mask & written) != 0 &&
           (before->mask & (written | IN_CREATE | IN_MOVED_TO)) != 0 && before->wd == event.wd &&
           std::string_view(before->name, before->len) == std::string_view(event.name, event.len);
}

/// Whether the process may still open files, so that it was another limit that kept it from this one.
bool may_open() {
    const Descriptor any(::open("/", O_PATH | O_CLOEXEC));
    return any.valid();
}

}  // namespace

struct Watcher::State {
    Descriptor instance{-1};
    const char* limit = "";
    alignas(inotify_event) char buffer[buffer_size];
};

const bool Watcher::sees_below = false;

Watcher::Watcher() : state_(std::make_unique<State>()) {}
Watcher::~Watcher() = default;

const char* Watcher::limit() const { return state_->limit; }

std::int64_t Watcher::add(const char* directory, bool tells_gone) {
    state_->limit = "";
    if (meets_fault(FaultPoint::OPEN)) return -1;
    if (!state_->instance.valid()) {
        state_->instance.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        if (!state_->instance.valid()) {
            const int code = errno;
            if (code == EMFILE && may_open()) state_->limit = "fs.inotify.max_user_instances";
            fail_os(code);
            return -1;
        }
    }
    const char* const path = *directory != '\0' ? directory : ".";
    const int watch = ::inotify_add_watch(state_->instance.number(), path, names | (tells_gone ? own_end : 0));
    if (watch >= 0) return watch;
    if (errno == ENOSPC) {
        state_->limit = "fs.inotify.max_user_watches";
        fail(Failure::TOO_MANY_FILES, ENOSPC);
    } else {
        fail_os(errno);
    }
    return -1;
}

void Watcher::remove(std::int64_t watch) {
    if (watch >= 0) ::inotify_rm_watch(state_->instance.number(), static_cast<int>(watch));
}

bool Watcher::drain(const std::function<void(const WatchEvent&)>& visit) {
    if (!state_->instance.valid()) return true;
    for (int reads = 0; reads < most_reads; ++reads) {
        const auto got =
            retry_interrupted([&] { return ::read(state_->instance.number(), state_->buffer, buffer_size); });
        if (got < 0 && errno == EAGAIN) return true;
        if (got <= 0) return fail_os(errno);
        const inotify_event* before = nullptr;
        for (const char* at = state_->buffer; at < state_->buffer + got;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(at);
            WatchEvent told;
            if (!repeats(before, event) && translate(event, told)) visit(told);
            before = &event;
            at += sizeof event + event.len;
        }
    }
    return true;
}

}  // namespace platform
