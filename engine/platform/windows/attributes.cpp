#include <algorithm>
#include <cstdio>
#include <cstring>

#include "engine/platform/directories.h"
#include "engine/platform/files.h"
#include "engine/platform/folding.h"
#include "engine/platform/windows/native_path.h"
#include "engine/platform/windows/ordered_fault.h"

// Asking about files, and changing what is written about them: attributes, times, names.

namespace platform {

namespace {

// Both records of the system have these fields under the same names.
template <typename Record>
Attributes to_attributes(const Record& record) {
    return {.is_directory = has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY),
            .is_read_only = has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_READONLY),
            .size = std::uint64_t{record.nFileSizeHigh} << 32 | record.nFileSizeLow,
            .write_time = to_file_time(record.ftLastWriteTime),
            .creation_time = to_file_time(record.ftCreationTime),
            .access_time = to_file_time(record.ftLastAccessTime)};
}

// Of what a link leads to: the quick question answers about the link itself.
std::optional<Attributes> attributes_behind_link(const char* path) {
    BY_HANDLE_FILE_INFORMATION record{};
    const Handle handle(open_for_query(path));
    if (handle.valid() && GetFileInformationByHandle(handle.get(), &record)) return to_attributes(record);
    fail_last();
    return std::nullopt;
}

// Opened for writing, so that a read-only file and one that is open refuse.
bool set_times(const char* path, std::int64_t time, bool all) {
    // The system gives these a meaning of its own.
    if (time < 0) return fail(Failure::OTHER, ERROR_INVALID_PARAMETER);
    const File file = File::open(path, {.access = Access::WRITE});
    if (!file.valid()) return false;
    const FILETIME value{.dwLowDateTime = static_cast<DWORD>(time),
                         .dwHighDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(time) >> 32)};
    const FILETIME* const others = all ? &value : nullptr;
    return SetFileTime(reinterpret_cast<HANDLE>(file.native()), others, others, &value) || fail_last();
}

bool is_directory(DWORD attributes) { return has_bits(attributes, FILE_ATTRIBUTE_DIRECTORY); }

bool refuse_read_only(DWORD attributes) {
    if (!has_bits(attributes, FILE_ATTRIBUTE_READONLY) || is_directory(attributes)) return true;
    return fail(Failure::READ_ONLY, ERROR_ACCESS_DENIED);
}

bool is_same_file(const char* a, const char* b) {
    BY_HANDLE_FILE_INFORMATION first{};
    BY_HANDLE_FILE_INFORMATION second{};
    const Handle first_handle(open_for_query(a));
    const Handle second_handle(open_for_query(b));
    return first_handle.valid() && second_handle.valid() && GetFileInformationByHandle(first_handle.get(), &first) &&
           GetFileInformationByHandle(second_handle.get(), &second) &&
           first.dwVolumeSerialNumber == second.dwVolumeSerialNumber && first.nFileIndexHigh == second.nFileIndexHigh &&
           first.nFileIndexLow == second.nFileIndexLow;
}

const char* last_component(const char* path) {
    const char* const slash = std::max(std::strrchr(path, '/'), std::strrchr(path, '\\'));
    return slash == nullptr ? path : slash + 1;
}

bool is_spelled(const char* path) {
    WIN32_FIND_DATAA item{};
    return find_item(path, item) && std::strcmp(item.cFileName, last_component(path)) == 0;
}

// Whether two paths are one name of one file or directory.
bool is_other_case(const char* from, const char* to) {
    const char* const old_name = last_component(from);
    const char* const new_name = last_component(to);
    const std::size_t length = std::strlen(old_name);
    return length == std::strlen(new_name) && equal_folded(old_name, new_name, length) && is_same_file(from, to);
}

// Some systems take a change of case for no change at all; they are led there by way of a third name.
bool change_case(const char* from, const char* to, DWORD flags) {
    if (!MoveFileExA(from, to, flags)) return fail_last();
    if (is_spelled(to)) return true;
    char between[path_buffer_size];
    const auto kept = static_cast<int>(last_component(from) - from);
    const int length = std::snprintf(between, sizeof between, "%.*s~%08lx.tmp", kept, from, GetTickCount());
    if (length < 0 || static_cast<std::size_t>(length) > max_path_bytes) return fail(Failure::PATH_TOO_LONG);
    if (!MoveFileExA(from, between, 0)) return fail_last();
    if (MoveFileExA(between, to, 0)) return true;
    fail_last();
    MoveFileExA(between, from, 0);
    return false;
}

// A file gives way to a file; nothing gives way to a directory, and no directory to anything.
bool may_take_place(const char* from, const char* to) {
    const DWORD target = attribute_bits(to);
    if (target == INVALID_FILE_ATTRIBUTES) return true;
    if (is_directory(target) || is_directory(attribute_bits(from))) return fail(Failure::ALREADY_EXISTS);
    return refuse_read_only(target);
}

// The system says "access denied" of a file that cannot be replaced because it is open.
bool is_open_somewhere(const char* path) {
    const Handle handle(
        CreateFileA(path, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, windows_api::open_existing, 0, nullptr));
    return !handle.valid() && GetLastError() == ERROR_SHARING_VIOLATION;
}

bool move(const char* from, const char* to, DWORD flags) {
    if (MoveFileExA(from, to, flags)) return true;
    const DWORD code = GetLastError();
    return code == ERROR_ACCESS_DENIED && is_open_somewhere(to) ? fail(Failure::IN_USE, code) : fail_os(code);
}

bool move_path(const char* from, const char* to, DWORD flags) {
    const NativePath source(from);
    if (!source.valid()) return false;
    const NativePath target(to, NativePath::Use::NEW);
    if (!target.valid() || meets_fault(FaultPoint::RENAME)) return false;
    if (is_other_case(source.text(), target.text())) return change_case(source.text(), target.text(), flags);
    if (!may_take_place(source.text(), target.text())) return false;
    return move(source.text(), target.text(), flags);
}

// The content must be on the disk before the name is. A read-only file has been closed by its writer long ago, and the
// system flushes nothing that is not open for writing.
bool sync_file(const char* path) {
    if (has_bits(attribute_bits(path), FILE_ATTRIBUTE_READONLY)) return true;
    const Handle handle(
        CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, windows_api::open_existing, 0, nullptr));
    return (handle.valid() && FlushFileBuffers(handle.get())) || fail_last();
}

}  // namespace

std::optional<Attributes> get_attributes(const PathAt& path) {
    const NativePath native(path.full);
    if (!native.valid() || meets_fault(FaultPoint::STAT)) return std::nullopt;
    WIN32_FILE_ATTRIBUTE_DATA record{};
    if (!GetFileAttributesExA(native.text(), GetFileExInfoStandard, &record)) {
        fail_last();
        return std::nullopt;
    }
    // A name that ends in a slash is a directory's.
    if (!is_directory(record.dwFileAttributes) && ends_in_slash(path.full)) {
        fail_os(ERROR_DIRECTORY);
        return std::nullopt;
    }
    if (has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT)) return attributes_behind_link(native.text());
    return to_attributes(record);
}

std::optional<Attributes> get_attributes(const char* path) { return get_attributes(PathAt{.full = path}); }

bool set_read_only(const char* path, bool on) {
    const NativePath native(path);
    if (!native.valid()) return false;
    const DWORD attributes = attribute_bits(native.text());
    if (attributes == INVALID_FILE_ATTRIBUTES) return fail_last();
    const DWORD others = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
    return SetFileAttributesA(native.text(), on ? others | FILE_ATTRIBUTE_READONLY : others) || fail_last();
}

bool set_write_time(const char* path, std::int64_t time) { return set_times(path, time, false); }

bool set_all_times(const char* path, std::int64_t time) { return set_times(path, time, true); }

bool remove_file(const char* path) {
    const NativePath native(path);
    if (!native.valid() || meets_fault(FaultPoint::REMOVE)) return false;
    const DWORD attributes = attribute_bits(native.text());
    if (is_directory(attributes) && is_link(path)) return RemoveDirectoryA(native.text()) || fail_last();
    if (is_directory(attributes)) return fail(Failure::NOT_REGULAR, ERROR_ACCESS_DENIED);
    return refuse_read_only(attributes) && (DeleteFileA(native.text()) || fail_last());
}

bool rename_path(const char* from, const char* to) { return move_path(from, to, MOVEFILE_REPLACE_EXISTING); }

bool replace_file(const char* from, const char* to) {
    const NativePath source(from);
    if (!source.valid()) return false;
    if (is_directory(attribute_bits(source.text()))) return fail(Failure::NOT_REGULAR);
    if (!sync_file(source.text())) return false;
    return move_path(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

}  // namespace platform
