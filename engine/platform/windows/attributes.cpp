#include <cwchar>
#include <string_view>

#include "engine/platform/directories.h"
#include "engine/platform/files.h"
#include "engine/platform/windows/names.h"

// Asking about files, and changing what is written about them: attributes, times, names.

namespace platform {

namespace {

// Both records of the system have these fields under the same names.
template <typename Record>
Attributes to_attributes(const Record& record) {
    return {.is_directory = is_directory(record.dwFileAttributes),
            .is_read_only = has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_READONLY),
            .size = std::uint64_t{record.nFileSizeHigh} << 32 | record.nFileSizeLow,
            .write_time = to_file_time(record.ftLastWriteTime),
            .access_time = to_file_time(record.ftLastAccessTime)};
}

bool check_not_read_only(DWORD attributes) {
    if (!has_bits(attributes, FILE_ATTRIBUTE_READONLY) || is_directory(attributes)) return true;
    return fail(Failure::READ_ONLY, ERROR_ACCESS_DENIED);
}

bool is_same_file(const wchar_t* a, const wchar_t* b) {
    BY_HANDLE_FILE_INFORMATION first{};
    BY_HANDLE_FILE_INFORMATION second{};
    return query(a, first) && query(b, second) && id_of(first) == id_of(second);
}

std::wstring_view last_component(std::wstring_view path) { return path.substr(path.find_last_of(L"/\\") + 1); }

bool is_spelled(const wchar_t* path) {
    WIN32_FIND_DATAW item{};
    return find_item(path, item) && item.cFileName == last_component(path);
}

// Whether two paths are one name of one file or directory.
bool is_other_case(const wchar_t* from, const wchar_t* to) {
    const std::wstring_view old_name = last_component(from);
    const std::wstring_view new_name = last_component(to);
    return CompareStringOrdinal(old_name.data(), static_cast<int>(old_name.size()), new_name.data(),
                                static_cast<int>(new_name.size()), TRUE) == CSTR_EQUAL &&
           is_same_file(from, to);
}

// Some systems take a change of case for no change at all; they are led there by way of a third name.
bool change_case(const wchar_t* from, const wchar_t* to, DWORD flags) {
    if (!MoveFileExW(from, to, flags)) return fail_last();
    if (is_spelled(to)) return true;
    wchar_t between[path_buffer_size];
    const auto kept = static_cast<int>(last_component(from).data() - from);
    const int length = std::swprintf(between, path_buffer_size, L"%.*ls~%08lx.tmp", kept, from, GetTickCount());
    if (length < 0) return fail(Failure::PATH_TOO_LONG);
    if (!MoveFileExW(from, between, 0)) return fail_last();
    if (MoveFileExW(between, to, 0)) return true;
    const DWORD code = GetLastError();
    MoveFileExW(between, from, 0);
    return fail_os(code);
}

// A file gives way to a file; nothing gives way to a directory, and no directory to anything.
bool may_take_place(const wchar_t* from, const wchar_t* to) {
    const DWORD target = attribute_bits(to);
    if (target == INVALID_FILE_ATTRIBUTES) return true;
    if (is_directory(target) || is_directory(attribute_bits(from))) return fail(Failure::ALREADY_EXISTS);
    return check_not_read_only(target);
}

// The system says "access denied" of a file that cannot be replaced because it is open.
bool is_open_somewhere(const wchar_t* path) {
    constexpr DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE;
    const Handle handle = own(CreateFileW(path, DELETE, share, nullptr, OPEN_EXISTING, 0, nullptr));
    return !handle && GetLastError() == ERROR_SHARING_VIOLATION;
}

bool fail_move(const wchar_t* to, DWORD code) {
    return code == ERROR_ACCESS_DENIED && is_open_somewhere(to) ? fail(Failure::IN_USE, ERROR_ACCESS_DENIED)
                                                                : fail_os(code);
}

bool move_path(const char* from, const char* to, DWORD flags) {
    const NativePath source(from);
    if (!source.valid()) return false;
    const NativePath target(to, NativePath::Use::NEW);
    if (!target.valid() || meets_fault(FaultPoint::RENAME)) return false;
    if (is_other_case(source.text(), target.text())) return change_case(source.text(), target.text(), flags);
    if (!may_take_place(source.text(), target.text())) return false;
    return MoveFileExW(source.text(), target.text(), flags) || fail_move(target.text(), GetLastError());
}

// The content must be on the disk before the name is. A read-only file has been closed by its writer long ago, and the
// system flushes nothing that is not open for writing.
bool sync_file(const wchar_t* path) {
    if (has_bits(attribute_bits(path), FILE_ATTRIBUTE_READONLY)) return true;
    const Handle handle = own(CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    return (handle && FlushFileBuffers(handle.get())) || fail_last();
}

}  // namespace

bool leads_to(const char* path, const File& file) {
    const NativePath native(path);
    BY_HANDLE_FILE_INFORMATION there{};
    BY_HANDLE_FILE_INFORMATION open{};
    return native.valid() && query(native.text(), there) &&
           GetFileInformationByHandle(to_handle(file.native()), &open) && id_of(there) == id_of(open);
}

std::optional<Attributes> get_attributes(const PathAt& path) {
    const NativePath native(path.full);
    if (!native.valid() || meets_fault(FaultPoint::STAT)) return std::nullopt;
    WIN32_FILE_ATTRIBUTE_DATA record{};
    if (!GetFileAttributesExW(native.text(), GetFileExInfoStandard, &record)) {
        fail_last();
    } else if (!is_directory(record.dwFileAttributes) && ends_in_slash(path.full)) {
        fail_os(ERROR_DIRECTORY);  // a name that ends in a slash is a directory's
    } else if (!has_bits(record.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT)) {
        return to_attributes(record);
    } else if (BY_HANDLE_FILE_INFORMATION behind{}; query(native.text(), behind)) {
        return to_attributes(behind);  // what the link leads to: the quick question answers about the link itself
    }
    return std::nullopt;
}

bool set_read_only(const char* path, bool on) {
    const NativePath native(path);
    if (!native.valid() || meets_fault(FaultPoint::CHANGE)) return false;
    const DWORD attributes = attribute_bits(native.text());
    if (attributes == INVALID_FILE_ATTRIBUTES) return fail_last();
    const DWORD others = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
    return SetFileAttributesW(native.text(), on ? others | FILE_ATTRIBUTE_READONLY : others) || fail_last();
}

bool remove_file(const char* path) {
    const NativePath native(path);
    if (!native.valid() || meets_fault(FaultPoint::REMOVE)) return false;
    const DWORD attributes = attribute_bits(native.text());
    if (is_directory(attributes) && is_link(path)) return RemoveDirectoryW(native.text()) || fail_last();
    if (is_directory(attributes)) return fail(Failure::NOT_REGULAR, ERROR_ACCESS_DENIED);
    return check_not_read_only(attributes) && (DeleteFileW(native.text()) || fail_last());
}

bool rename_path(const char* from, const char* to) { return move_path(from, to, MOVEFILE_REPLACE_EXISTING); }

bool replace_file(const char* from, const char* to) {
    const NativePath source(from);
    if (!source.valid()) return false;
    if (is_directory(attribute_bits(source.text()))) return fail(Failure::NOT_REGULAR);
    if (meets_fault(FaultPoint::SYNC) || !sync_file(source.text())) return false;
    return move_path(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

bool File::rename_open(const char* from, const char* to) {
    const NativePath source(from);
    if (!source.valid()) return false;
    const NativePath target(to, NativePath::Use::NEW);
    if (!target.valid() || !may_take_place(source.text(), target.text())) return false;
    struct Order {
        FILE_RENAME_INFO head;
        wchar_t rest[path_buffer_size];
    } order{};
    wchar_t* const text = order.head.FileName;
    const DWORD length = GetFullPathNameW(target.text(), path_buffer_size, text, nullptr);
    if (length == 0 || length >= path_buffer_size) return fail(Failure::PATH_TOO_LONG);
    order.head.ReplaceIfExists = TRUE;
    order.head.FileNameLength = length * static_cast<DWORD>(sizeof(wchar_t));
    return SetFileInformationByHandle(to_handle(state_.handle), FileRenameInfo, &order, sizeof order) ||
           fail_move(target.text(), GetLastError());
}

bool File::remove_open(const char*) {
    FILE_DISPOSITION_INFO order{.DeleteFile = TRUE};
    return SetFileInformationByHandle(to_handle(state_.handle), FileDispositionInfo, &order, sizeof order) ||
           fail_last();
}

}  // namespace platform
