#include "engine/filesystem/contract/set_error.h"

#include <utility>

namespace fs {

namespace {

SFsError& thread_error() {
    thread_local SFsError error;
    return error;
}

/// What the thread's innermost ErrorScope knows.
struct ScopeState {
    bool open = false;
    bool found = false;  // a failure was stored within it
};
thread_local ScopeState scope;

/// How many ErrorKeepers stand on the thread's stack.
thread_local int keepers = 0;

/// Whether a failure of this kind may take the place of what is stored.
bool says_more(EFSError::TYPE code) {
    return keepers == 0 &&
           !(scope.open && scope.found && code == EFSError::NOT_FOUND && thread_error().code != EFSError::NOT_FOUND);
}

void store_kind(EFSError::TYPE code, const char* path, std::int32_t os_code) {
    SFsError& error = thread_error();
    scope.found = true;
    error.code = code;
    error.os_code = os_code;
    // The words may be lost for want of memory; that there was a failure, and of which kind, is not.
    try {
        error.path.assign(path != nullptr ? path : "");
    } catch (...) {
        error.path.clear();
    }
}

const char* reason(platform::Failure failure) {
    switch (failure) {
        case platform::Failure::NONE:
            return "for no known reason";
        case platform::Failure::NOT_FOUND:
            return "because it is not on the disk";
        case platform::Failure::ACCESS_DENIED:
            return "because the system denies access";
        case platform::Failure::IN_USE:
            return "because it is in use";
        case platform::Failure::ALREADY_EXISTS:
            return "because it exists already";
        case platform::Failure::NOT_EMPTY:
            return "because the directory is not empty";
        case platform::Failure::DISK_FULL:
            return "because the disk is full";
        case platform::Failure::PATH_TOO_LONG:
            return "because its path is longer than 259 bytes";
        case platform::Failure::NOT_REGULAR:
            return "because it is no regular file";
        case platform::Failure::READ_ONLY:
            return "because it is read-only";
        case platform::Failure::INVALID_NAME:
            return "because the name is not allowed";
        case platform::Failure::INVALID_HANDLE:
            return "because the file is not open";
        case platform::Failure::ABORTED:
            return "because the operation was aborted";
        case platform::Failure::OTHER:
            return "because the system failed";
    }
    return "";
}

}  // namespace

const SFsError& last_error() { return thread_error(); }

void clear_error() {
    SFsError& error = thread_error();
    error.code = EFSError::NONE;
    error.os_code = 0;
    error.path.clear();
    error.text.clear();
}

void set_error(EFSError::TYPE code, const char* path, std::string text, std::int32_t os_code) {
    if (!says_more(code)) return;
    store_kind(code, path, os_code);
    thread_error().text = std::move(text);
}

void set_error(EFSError::TYPE code, const char* path, const char* text, std::int32_t os_code) noexcept {
    if (!says_more(code)) return;
    store_kind(code, path, os_code);
    try {
        thread_error().text.assign(text);
    } catch (...) {
        thread_error().text.clear();
    }
}

ErrorScope::ErrorScope() : outer_found_(scope.found), outer_open_(scope.open) { scope = {.open = true}; }
ErrorScope::~ErrorScope() { scope = {.open = outer_open_, .found = outer_found_ || scope.found}; }
bool ErrorScope::has_error() const { return scope.found; }

ErrorKeeper::ErrorKeeper() { ++keepers; }
ErrorKeeper::~ErrorKeeper() { --keepers; }

void set_error_from_platform(const char* path, const char* action, const platform::Error& error) {
    std::string text;
    try {
        text.append("The file or directory ").append(action).append(" ").append(reason(error.failure)).append(".");
    } catch (...) {
        text.clear();
    }
    set_error(error_from_platform(error.failure), path, std::move(text), error.os_code);
}

EFSError::TYPE error_from_platform(platform::Failure failure) {
    switch (failure) {
        case platform::Failure::NONE:
            return EFSError::NONE;
        case platform::Failure::NOT_FOUND:
            return EFSError::NOT_FOUND;
        case platform::Failure::ACCESS_DENIED:
            return EFSError::ACCESS_DENIED;
        case platform::Failure::IN_USE:
            return EFSError::IN_USE;
        case platform::Failure::ALREADY_EXISTS:
            return EFSError::ALREADY_EXISTS;
        case platform::Failure::NOT_EMPTY:
            return EFSError::ALREADY_EXISTS;
        case platform::Failure::DISK_FULL:
            return EFSError::DISK_FULL;
        case platform::Failure::PATH_TOO_LONG:
            return EFSError::INVALID_NAME;
        case platform::Failure::NOT_REGULAR:
            return EFSError::ACCESS_DENIED;
        case platform::Failure::READ_ONLY:
            return EFSError::READ_ONLY;
        case platform::Failure::INVALID_NAME:
            return EFSError::INVALID_NAME;
        case platform::Failure::INVALID_HANDLE:
            return EFSError::INVALID_ARGUMENT;
        case platform::Failure::ABORTED:
            return EFSError::CANCELLED;
        case platform::Failure::OTHER:
            return EFSError::IO;
    }
    return EFSError::IO;
}

}  // namespace fs
