// Open files: the system's own rules of sharing are the ones that callers expect.
#include <fcntl.h>
#include <io.h>

#include "engine/platform/files.h"
#include "engine/platform/windows/names.h"

namespace platform {

namespace {

constexpr std::uint32_t unbuffered_alignment = 4096;  // a multiple of what any disk asks for

// File systems that cannot bypass the cache refuse the flag; then the open is an ordinary one.
HANDLE create_or_buffered(const wchar_t* path, const OpenOptions& options, DWORD& flags) {
    const DWORD access = (options.access != Access::WRITE ? GENERIC_READ : 0) | (options.writes() ? GENERIC_WRITE : 0) |
                         (options.replaces ? DELETE : 0);
    const DWORD share = options.sharing == Sharing::READ ? FILE_SHARE_READ : 0;
    const DWORD disposition = options.creates() ? OPEN_ALWAYS : OPEN_EXISTING;
    const auto create = [&] { return CreateFileW(path, access, share, nullptr, disposition, flags, nullptr); };
    flags = FILE_ATTRIBUTE_NORMAL;
    if (options.write_through) flags |= FILE_FLAG_WRITE_THROUGH;
    if (options.unbuffered) flags |= FILE_FLAG_NO_BUFFERING;
    if (options.overlapped) flags |= FILE_FLAG_OVERLAPPED;
    const HANDLE handle = create();
    const bool is_refused = handle == INVALID_HANDLE_VALUE && GetLastError() == ERROR_INVALID_PARAMETER;
    if (!is_refused || !options.unbuffered) return handle;
    flags &= ~static_cast<DWORD>(FILE_FLAG_NO_BUFFERING);
    return create();
}

// The system says "access denied" for directories and for read-only files alike.
void record_open_failure(const wchar_t* path, bool is_write, DWORD code) {
    const DWORD attributes = code == ERROR_ACCESS_DENIED ? attribute_bits(path) : INVALID_FILE_ATTRIBUTES;
    if (has_bits(attributes, FILE_ATTRIBUTE_DIRECTORY)) {
        fail(Failure::NOT_REGULAR, ERROR_ACCESS_DENIED);
    } else if (is_write && has_bits(attributes, FILE_ATTRIBUTE_READONLY)) {
        fail(Failure::READ_ONLY, ERROR_ACCESS_DENIED);
    } else {
        fail_os(code);
    }
}

/// One call of the system; `call(record)` is ReadFile or WriteFile. All ones when it failed; the end of a file is no
/// failure, but nothing moved. On a handle for overlapped use the end of the call is waited for.
template <class Call>
std::uint64_t move_some(HANDLE handle, std::uint64_t offset, HANDLE event, Call call) {
    OVERLAPPED record{};
    record.Offset = static_cast<DWORD>(offset);
    record.OffsetHigh = static_cast<DWORD>(offset >> 32);
    record.hEvent = event;
    DWORD moved = 0;
    if (call(record) || GetLastError() == ERROR_IO_PENDING) {
        if (GetOverlappedResult(handle, &record, &moved, TRUE)) return moved;
    }
    if (GetLastError() == ERROR_HANDLE_EOF) return 0;
    fail_last();
    return all_ones;
}

}  // namespace

// There is no opening relative to a directory here that were cheaper than a whole path.
Root::~Root() = default;
Root Root::open(const char*) { return {}; }

void File::open_unchanged(const PathAt& path, const OpenOptions& options, bool& created) {
    if (ends_in_slash(path.full) && !fail(Failure::INVALID_NAME)) return;
    const NativePath native(path.full, options.creates() ? NativePath::Use::NEW : NativePath::Use::EXISTING);
    if (!native.valid()) return;
    // Where the caller may do everything, some systems let the attribute bind nobody.
    if (options.writes() && has_bits(attribute_bits(native.text()), FILE_ATTRIBUTE_READONLY))
        return record_open_failure(native.text(), true, ERROR_ACCESS_DENIED);
    DWORD flags = 0;
    const HANDLE handle = create_or_buffered(native.text(), options, flags);
    const DWORD code = GetLastError();
    if (handle == INVALID_HANDLE_VALUE) return record_open_failure(native.text(), options.writes(), code);
    created = options.creates() && code != ERROR_ALREADY_EXISTS;
    state_.handle = reinterpret_cast<std::intptr_t>(handle);
    state_.alignment = (flags & FILE_FLAG_NO_BUFFERING) != 0 ? unbuffered_alignment : 1;
    state_.overlapped = options.overlapped;
    const bool is_regular = GetFileType(handle) == FILE_TYPE_DISK || fail(Failure::NOT_REGULAR);
    if (is_regular && !meets_fault(FaultPoint::LOCK)) return;
    close();
    if (is_regular && created) DeleteFileW(native.text());
}

bool File::close_handle() { return CloseHandle(to_handle(state_.handle)) || fail_last(); }

std::uint64_t File::read_some(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    const HANDLE handle = to_handle(state_.handle);
    // Several reads may be under way on one handle, so each waits for an event of its own.
    const Handle event = own(state_.overlapped ? CreateEventW(nullptr, TRUE, FALSE, nullptr) : nullptr);
    if (state_.overlapped && !event && !fail_last()) return all_ones;
    return move_some(handle, offset, event.get(), [&](OVERLAPPED& record) {
        return ReadFile(handle, buffer, static_cast<DWORD>(size), nullptr, &record) != 0;
    });
}

std::uint64_t File::write_some(const void* buffer, std::uint64_t size, std::uint64_t offset) {
    const HANDLE handle = to_handle(state_.handle);
    // Nobody else can have it open for writing, so its end stays where it is.
    if (state_.append) offset = ask_length();
    if (offset == all_ones) return all_ones;
    return move_some(handle, offset, nullptr, [&](OVERLAPPED& record) {
        return WriteFile(handle, buffer, static_cast<DWORD>(size), nullptr, &record) != 0;
    });
}

bool File::append_only() {
    state_.append = true;
    return true;
}

std::uint64_t File::ask_length() const {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(to_handle(state_.handle), &size)) return static_cast<std::uint64_t>(size.QuadPart);
    fail_last();
    return all_ones;
}

bool File::end_at(std::uint64_t position) {
    LARGE_INTEGER end{};
    end.QuadPart = static_cast<LONGLONG>(position);
    const HANDLE handle = to_handle(state_.handle);
    return (SetFilePointerEx(handle, end, nullptr, FILE_BEGIN) && SetEndOfFile(handle)) || fail_last();
}

// To the system, too, a 0 is no time.
bool File::set_times(std::int64_t time, bool all) {
    const FILETIME value = from_file_time(time);
    const FILETIME* const others = all ? &value : nullptr;
    return SetFileTime(to_handle(state_.handle), others, others, &value) || fail_last();
}

bool File::flush() { return FlushFileBuffers(to_handle(state_.handle)) || fail_last(); }

int File::duplicate_descriptor(bool for_writing) const {
    if (!valid()) fail(Failure::INVALID_HANDLE);
    if (!valid() || meets_fault(FaultPoint::DUPLICATE)) return -1;
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(state_.position);
    const HANDLE process = GetCurrentProcess();
    HANDLE copy = nullptr;
    if (!SetFilePointerEx(to_handle(state_.handle), position, nullptr, FILE_BEGIN) ||
        !DuplicateHandle(process, to_handle(state_.handle), process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        fail_last();
        return -1;
    }
    const int flags = _O_BINARY | _O_NOINHERIT | (for_writing ? _O_RDWR : _O_RDONLY);
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(copy), flags);
    if (descriptor >= 0) return descriptor;
    CloseHandle(copy);
    fail(Failure::TOO_MANY_FILES);
    return -1;
}

void close_descriptor(int descriptor) { _close(descriptor); }

int File::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred, SNativeOverlapped* overlapped) {
    enum Status { PENDING = 0, DONE = 1, FAILED = 2, ABORTED = 3 };
    *transferred = 0;
    auto* const record = reinterpret_cast<OVERLAPPED*>(overlapped);
    DWORD moved = 0;
    if (ReadFile(to_handle(state_.handle), buffer, size, nullptr, record) &&
        GetOverlappedResult(to_handle(state_.handle), record, &moved, FALSE)) {
        *transferred = moved;
        return DONE;
    }
    if (GetLastError() == ERROR_IO_PENDING) return PENDING;
    fail_last();
    return last_error().failure == Failure::ABORTED ? ABORTED : FAILED;
}

bool File::cancel() {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    const HANDLE handle = to_handle(state_.handle);
    if (CancelIoEx(handle, nullptr) || GetLastError() == ERROR_NOT_FOUND) return true;  // nothing was in flight
    return CancelIo(handle) || fail_last();
}

Mapping::Mapping(const File& file, std::uint64_t offset, std::uint64_t size) {
    if (meets_fault(FaultPoint::READ)) return;
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    skip_ = static_cast<std::size_t>(offset % system.dwAllocationGranularity);
    const std::size_t length = static_cast<std::size_t>(size) + skip_;
    const std::uint64_t from = offset - skip_;
    // The view keeps it.
    const Handle section = own(CreateFileMappingW(to_handle(file.native()), nullptr, PAGE_READONLY, 0, 0, nullptr));
    if (section) {
        start_ = {MapViewOfFile(section.get(), FILE_MAP_READ, static_cast<DWORD>(from >> 32), static_cast<DWORD>(from),
                                length),
                  Unmap{length}};
    }
    if (IsEmpty()) fail_last();
}

// A file that is mapped cannot be cut here, so every page is there to be touched.
bool Mapping::Populate() const {
    constexpr std::size_t page = 4096;
    const auto* const bytes = static_cast<const volatile char*>(start_.get());
    for (std::size_t at = 0; at < start_.get_deleter().length; at += page) static_cast<void>(bytes[at]);
    return true;
}

void Mapping::Unmap::operator()(void* start) const { UnmapViewOfFile(start); }

}  // namespace platform
