#include "engine/platform/watcher.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <iterator>
#include <map>
#include <string>

#include "engine/platform/windows/names.h"

// One read of changes is always under way for each watch; what happens between two of them the system keeps for the next. A
// read that ends without bytes, or with the thread that began it, has lost something.

namespace platform {

namespace {

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD filter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE |
                         FILE_NOTIFY_CHANGE_SIZE;
constexpr DWORD buffer_size = 64 * 1024;  // a network's file system takes no more
constexpr int most_reads = 256;           // in one drain, so that it ends while others go on writing

using Visitor = std::function<void(const WatchEvent&)>;

WatchEvent::Kind kind_of(DWORD action) {
    if (action == FILE_ACTION_ADDED) return WatchEvent::Kind::CREATED;
    if (action == FILE_ACTION_RENAMED_NEW_NAME) return WatchEvent::Kind::ARRIVED;
    return action == FILE_ACTION_MODIFIED ? WatchEvent::Kind::CHANGED : WatchEvent::Kind::REMOVED;
}

class DirectoryWatch {
public:
    DirectoryWatch(const NativePath& directory, std::int64_t number)
        : number_(number),
          path_(directory.view()),
          handle_(own(CreateFileW(directory.text(), FILE_LIST_DIRECTORY, share_all, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr))),
          event_(handle_ ? CreateEventW(nullptr, TRUE, FALSE, nullptr) : nullptr) {}
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;
    ~DirectoryWatch() {
        DWORD moved = 0;
        if (is_reading_ && CancelIoEx(handle_.get(), &record_))
            GetOverlappedResult(handle_.get(), &record_, &moved, TRUE);
    }

    /// False, with the system's error, when the directory cannot be watched.
    bool read() {
        record_ = OVERLAPPED{};
        record_.hEvent = event_.get();
        is_reading_ = event_ && ReadDirectoryChangesW(handle_.get(), buffer_, buffer_size, TRUE, filter, nullptr,
                                                      &record_, nullptr);
        return is_reading_;
    }

    void drain(const Visitor& visit) {
        for (int reads = 0; is_reading_ && HasOverlappedIoCompleted(&record_) && reads < most_reads; ++reads) {
            DWORD moved = 0;
            const bool is_good = GetOverlappedResult(handle_.get(), &record_, &moved, FALSE);
            const DWORD code = is_good ? ERROR_SUCCESS : GetLastError();
            const bool is_dropped =
                is_good ? moved == 0 : code == ERROR_NOTIFY_ENUM_DIR || code == ERROR_OPERATION_ABORTED;
            is_reading_ = false;
            if (is_dropped)
                visit({.watch = number_, .kind = WatchEvent::Kind::DROPPED, .name = {}});
            else if (is_good)
                tell_records(visit);
            if ((!is_good && !is_dropped) || !read())
                visit({.watch = number_, .kind = WatchEvent::Kind::GONE, .name = {}});
        }
    }

private:
    void tell_records(const Visitor& visit) const {
        for (const char* at = buffer_;;) {
            const auto& record = *reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(at);
            tell({record.FileName, record.FileNameLength / sizeof(WCHAR)}, kind_of(record.Action), visit);
            if (record.NextEntryOffset == 0) return;
            at += record.NextEntryOffset;
        }
    }

    void tell(std::wstring_view wide, WatchEvent::Kind kind, const Visitor& visit) const {
        char name[path_buffer_size];
        const std::size_t length = to_narrow(wide, name, sizeof name);
        if (length == 0) return;  // could not be asked for
        std::replace(name, name + length, '\\', '/');
        WatchEvent event{.watch = number_, .kind = kind, .name = {name, length}};
        if (kind != WatchEvent::Kind::REMOVED) {
            wchar_t path[2 * path_buffer_size];  // neither part is longer than a native path
            std::swprintf(path, std::size(path), L"%ls\\%.*ls", path_.c_str(), static_cast<int>(wide.size()),
                          wide.data());
            event.is_directory = is_directory(attribute_bits(path));
        }
        // A directory is written whenever something in it comes or goes.
        if (!event.is_directory || kind != WatchEvent::Kind::CHANGED) visit(event);
    }

    const std::int64_t number_;
    const std::wstring path_;
    const Handle handle_;
    const Handle event_;
    OVERLAPPED record_{};
    bool is_reading_ = false;
    alignas(DWORD) char buffer_[buffer_size];
};

}  // namespace

struct Watcher::State {
    std::map<std::int64_t, std::unique_ptr<DirectoryWatch>> watches;
    std::int64_t latest = 0;
};

const bool Watcher::sees_below = true;

Watcher::Watcher() : state_(std::make_unique<State>()) {}
Watcher::~Watcher() = default;

const char* Watcher::limit() const { return ""; }

std::int64_t Watcher::add(const char* directory, bool /*tells_gone*/) {
    const NativePath native(*directory != '\0' ? directory : ".");
    if (!native.valid() || meets_fault(FaultPoint::OPEN)) return -1;
    const std::int64_t number = ++state_->latest;
    auto watch = std::make_unique<DirectoryWatch>(native, number);
    if (!watch->read()) {
        fail_last();
        return -1;
    }
    state_->watches.emplace(number, std::move(watch));
    return number;
}

void Watcher::remove(std::int64_t watch) { state_->watches.erase(watch); }

bool Watcher::drain(const Visitor& visit) {
    for (const auto& [number, watch] : state_->watches) watch->drain(visit);
    return true;
}

}  // namespace platform
