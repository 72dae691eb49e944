#include "engine/platform/files.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "engine/platform/windows/native_path.h"
#include "engine/platform/windows/ordered_fault.h"

// The position of a file is kept here, and every read and write names its offset: the system's own position moves with
// whoever reads, and is only set where the system uses it (the end mark, descriptors of the C run-time).

namespace platform {

namespace {

constexpr std::uint64_t all_ones = ~std::uint64_t{0};  // nothing moved, or not known
constexpr std::uint64_t largest_position = 0x7FFF'FFFF'FFFF'FFFF;
constexpr std::uint64_t largest_piece = 0x4000'0000;  // a multiple of any alignment below the system's 32 bits
constexpr std::uint32_t unbuffered_alignment = 4096;  // a multiple of what any disk asks for

HANDLE to_handle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

bool truncates(Disposition disposition) {
    return disposition == Disposition::CREATE_ALWAYS || disposition == Disposition::TRUNCATE_EXISTING;
}

bool creates(Disposition disposition) {
    return disposition == Disposition::CREATE_ALWAYS || disposition == Disposition::OPEN_ALWAYS;
}

DWORD access_of(const OpenOptions& options) {
    const DWORD truncating = truncates(options.disposition) ? GENERIC_WRITE : 0;
    switch (options.access) {
        case Access::READ:
            return GENERIC_READ | truncating;
        case Access::WRITE:
            return GENERIC_WRITE;
        case Access::READ_WRITE:
            return GENERIC_READ | GENERIC_WRITE;
    }
    return 0;
}

DWORD disposition_of(Disposition disposition) {
    switch (disposition) {
        case Disposition::OPEN_EXISTING:
            return windows_api::open_existing;
        case Disposition::OPEN_ALWAYS:
            return windows_api::open_always;
        case Disposition::CREATE_ALWAYS:
            return windows_api::create_always;
        case Disposition::TRUNCATE_EXISTING:
            return windows_api::truncate_existing;
    }
    return 0;
}

DWORD flags_of(const OpenOptions& options) {
    DWORD flags = FILE_ATTRIBUTE_NORMAL;
    if (options.write_through) flags |= FILE_FLAG_WRITE_THROUGH;
    if (options.unbuffered) flags |= FILE_FLAG_NO_BUFFERING;
    if (options.overlapped) flags |= FILE_FLAG_OVERLAPPED;
    return flags;
}

HANDLE create_file(const char* path, const OpenOptions& options, DWORD flags) {
    const DWORD share = options.sharing == Sharing::READ ? FILE_SHARE_READ : 0;
    return CreateFileA(path, access_of(options), share, nullptr, disposition_of(options.disposition), flags, nullptr);
}

// File systems that cannot bypass the cache refuse the flag; then the open is an ordinary one.
HANDLE create_or_buffered(const char* path, const OpenOptions& options, DWORD& flags) {
    const HANDLE handle = create_file(path, options, flags);
    if (handle != INVALID_HANDLE_VALUE || GetLastError() != ERROR_INVALID_PARAMETER) return handle;
    if ((flags & FILE_FLAG_NO_BUFFERING) == 0) return handle;
    flags &= ~static_cast<DWORD>(FILE_FLAG_NO_BUFFERING);
    return create_file(path, options, flags);
}

// The system says "access denied" for directories and for read-only files alike.
void record_open_failure(const char* path, bool writes, DWORD code) {
    const DWORD attributes = code == ERROR_ACCESS_DENIED ? attribute_bits(path) : INVALID_FILE_ATTRIBUTES;
    if (has_bits(attributes, FILE_ATTRIBUTE_DIRECTORY)) {
        fail(Failure::NOT_REGULAR, code);
    } else if (writes && has_bits(attributes, FILE_ATTRIBUTE_READONLY)) {
        fail(Failure::READ_ONLY, code);
    } else {
        fail_os(code);
    }
}

std::uint64_t no_handle() {
    fail(Failure::INVALID_HANDLE);
    return all_ones;
}

OVERLAPPED at_offset(std::uint64_t offset, HANDLE event) {
    OVERLAPPED record{};
    record.Offset = static_cast<DWORD>(offset);
    record.OffsetHigh = static_cast<DWORD>(offset >> 32);
    record.hEvent = event;
    return record;
}

// One call of the system; `call(size, record)` is ReadFile or WriteFile. False when it failed; the end of a file is no
// failure, but nothing moved. On a handle for overlapped use the end of the call is waited for.
template <typename Call>
bool move_piece(HANDLE handle, DWORD size, OVERLAPPED& record, DWORD& moved, Call call) {
    moved = 0;
    if (call(size, record) || GetLastError() == ERROR_IO_PENDING) {
        if (GetOverlappedResult(handle, &record, &moved, TRUE)) return true;
    }
    return GetLastError() == ERROR_HANDLE_EOF;
}

// Moves pieces until all is done, the file ends, or a call fails: what was moved before that counts.
template <typename Call>
std::uint64_t move_all(HANDLE handle, std::uint64_t size, std::uint64_t offset, HANDLE event, Call call) {
    std::uint64_t done = 0;
    while (done < size) {
        OVERLAPPED record = at_offset(offset + done, event);
        DWORD moved = 0;
        const auto piece = static_cast<DWORD>(std::min(size - done, largest_piece));
        if (!move_piece(handle, piece, record, moved,
                        [&](DWORD count, OVERLAPPED& where) { return call(done, count, where); })) {
            fail_last();
            return done == 0 ? all_ones : done;
        }
        done += moved;
        if (moved < piece) break;
    }
    return done;
}

}  // namespace

// There is no opening relative to a directory here that were cheaper than a whole path.
Root::Root(Root&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
Root& Root::operator=(Root&& other) noexcept {
    handle_ = std::exchange(other.handle_, -1);
    return *this;
}
Root::~Root() = default;
Root Root::open(const char*) { return {}; }

File::File(File&& other) noexcept
    : handle_(std::exchange(other.handle_, -1)),
      position_(other.position_),
      alignment_(other.alignment_),
      overlapped_(other.overlapped_) {}

File& File::operator=(File&& other) noexcept {
    if (this == &other) return *this;
    close();
    handle_ = std::exchange(other.handle_, -1);
    position_ = other.position_;
    alignment_ = other.alignment_;
    overlapped_ = other.overlapped_;
    return *this;
}

File::~File() { close(); }

void File::close() {
    if (valid()) CloseHandle(to_handle(std::exchange(handle_, -1)));
}

File File::open(const PathAt& path, const OpenOptions& options) {
    File file;
    if (ends_in_slash(path.full) && !fail(Failure::INVALID_NAME)) return file;
    const NativePath native(path.full, creates(options.disposition) ? NativePath::Use::NEW : NativePath::Use::EXISTING);
    if (!native.valid() || meets_fault(FaultPoint::OPEN)) return file;

    const bool writes = (access_of(options) & GENERIC_WRITE) != 0;
    // Where the caller may do everything, some systems let the attribute bind nobody.
    if (writes && has_bits(attribute_bits(native.text()), FILE_ATTRIBUTE_READONLY)) {
        record_open_failure(native.text(), writes, ERROR_ACCESS_DENIED);
        return file;
    }
    DWORD flags = flags_of(options);
    const HANDLE handle = create_or_buffered(native.text(), options, flags);
    if (handle == INVALID_HANDLE_VALUE) {
        record_open_failure(native.text(), writes, GetLastError());
        return file;
    }
    file.handle_ = reinterpret_cast<std::intptr_t>(handle);
    file.alignment_ = (flags & FILE_FLAG_NO_BUFFERING) != 0 ? unbuffered_alignment : 1;
    file.overlapped_ = options.overlapped;
    if (GetFileType(handle) == FILE_TYPE_DISK) return file;
    file.close();
    fail(Failure::NOT_REGULAR);
    return file;
}

std::uint64_t File::read(void* buffer, std::uint64_t size) {
    const std::uint64_t done = read_at(buffer, size, position_);
    if (done != all_ones) position_ += done;
    return done;
}

std::uint64_t File::read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    if (!valid()) return no_handle();
    if (meets_fault(FaultPoint::READ, size)) return all_ones;
    const HANDLE handle = to_handle(handle_);
    // Several reads may be under way on one handle, so each waits for an event of its own.
    const Handle event(overlapped_ ? CreateEventA(nullptr, TRUE, FALSE, nullptr) : nullptr);
    if (overlapped_ && !event.valid() && !fail_last()) return all_ones;
    return move_all(handle, size, offset, event.get(), [&](std::uint64_t done, DWORD count, OVERLAPPED& where) {
        return ReadFile(handle, static_cast<char*>(buffer) + done, count, nullptr, &where) != 0;
    });
}

std::uint64_t File::write(const void* buffer, std::uint64_t size) {
    if (!valid()) return no_handle();
    if (meets_fault(FaultPoint::WRITE, size)) return all_ones;
    const HANDLE handle = to_handle(handle_);
    const auto write_piece = [&](std::uint64_t done, DWORD count, OVERLAPPED& where) {
        return WriteFile(handle, static_cast<const char*>(buffer) + done, count, nullptr, &where) != 0;
    };
    const std::uint64_t done = move_all(handle, size, position_, nullptr, write_piece);
    if (done != all_ones) position_ += done;
    return done;
}

// Seeking asks the system for nothing but, perhaps, the length.
bool File::seek(std::int64_t offset, Origin origin) {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    std::uint64_t base = 0;
    if (origin == Origin::CURRENT) base = position_;
    if (origin == Origin::END && (base = length()) == all_ones) return false;
    const std::uint64_t target = base + static_cast<std::uint64_t>(offset);  // wraps where it cannot be a position
    if (target > largest_position) return fail_os(ERROR_NEGATIVE_SEEK);
    position_ = target;
    return true;
}

std::uint64_t File::tell() const { return valid() ? position_ : no_handle(); }

std::uint64_t File::length() const {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(to_handle(handle_), &size)) return static_cast<std::uint64_t>(size.QuadPart);
    fail_last();
    return all_ones;
}

bool File::set_end() {
    if (meets_fault(FaultPoint::SET_END)) return false;
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(position_);
    const HANDLE handle = to_handle(handle_);
    return (SetFilePointerEx(handle, position, nullptr, FILE_BEGIN) && SetEndOfFile(handle)) || fail_last();
}

bool File::sync() { return FlushFileBuffers(to_handle(handle_)) || fail_last(); }

int File::duplicate_descriptor(bool for_writing) const {
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(position_);
    const HANDLE process = GetCurrentProcess();
    HANDLE copy = nullptr;
    if (!SetFilePointerEx(to_handle(handle_), position, nullptr, FILE_BEGIN) ||
        !DuplicateHandle(process, to_handle(handle_), process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        fail_last();
        return -1;
    }
    const int flags = _O_BINARY | _O_NOINHERIT | (for_writing ? _O_RDWR : _O_RDONLY);
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(copy), flags);
    if (descriptor >= 0) return descriptor;
    CloseHandle(copy);
    fail(Failure::OTHER);
    return -1;
}

void close_descriptor(int descriptor) { _close(descriptor); }

}  // namespace platform
