#include "engine/filesystem/contract/set_error.h"

#include <new>
#include <utility>

namespace fs {

namespace {

SFsError& thread_error() {
    thread_local SFsError error;
    return error;
}

thread_local ErrorScope::State* innermost_scope = nullptr;

/// How many ErrorKeepers stand on the thread's stack.
thread_local int keepers = 0;

/// Whether a failure of this kind may take the place of what is stored.
bool says_more(EFSError::TYPE code) {
    if (keepers != 0) return false;
    const bool found = innermost_scope != nullptr && innermost_scope->found;
    return !found || code != EFSError::NOT_FOUND || thread_error().code == EFSError::NOT_FOUND;
}

/// Before the first failure of a scope is stored: keeps what it takes the place of.
void note_in_scope() {
    if (innermost_scope == nullptr || innermost_scope->found) return;
    innermost_scope->found = true;
    innermost_scope->before.reset(new (std::nothrow) SFsError(std::move(thread_error())));
}

void store_kind(EFSError::TYPE code, const char* path, std::int32_t os_code) {
    SFsError& error = thread_error();
    // The words may be lost for want of memory; that there was a failure, and of which kind, is not.
    fs::string kept_path;
    try {
        kept_path.assign(path != nullptr ? path : "");  // which may be the stored one itself
    } catch (...) {
        kept_path.clear();
    }
    note_in_scope();
    error.code = code;
    error.os_code = os_code;
    error.path = std::move(kept_path);
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
        case platform::Failure::OUT_OF_MEMORY:
            return "because there is not enough memory";
        case platform::Failure::TOO_MANY_FILES:
            return "because too many files are open";
        case platform::Failure::IO:
            return "because the device failed to read or write";
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

ErrorScope::ErrorScope() : state_{.outer = innermost_scope, .before = nullptr} { innermost_scope = &state_; }

ErrorScope::~ErrorScope() {
    State* const outer = state_.outer;
    innermost_scope = outer;
    if (!state_.found || outer == nullptr || outer->found) return;
    outer->found = true;
    outer->before = std::move(state_.before);
}

void ErrorScope::forget() {
    if (!state_.found) return;
    state_.found = false;
    if (state_.before != nullptr) {
        thread_error() = std::move(*state_.before);
        state_.before.reset();
    }
}

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

bool refuse(EFSError::TYPE code, const char* path, const char* text) noexcept {
    set_error(code, path, text);
    return false;
}

bool refuse_by_disk(const char* path, const char* action) {
    set_error_from_platform(path, action, platform::last_error());
    return false;
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
        case platform::Failure::OUT_OF_MEMORY:
            return EFSError::OUT_OF_MEMORY;
        case platform::Failure::TOO_MANY_FILES:
        case platform::Failure::IO:
        case platform::Failure::OTHER:
            return EFSError::IO;
    }
    return EFSError::IO;
}

}  // namespace fs
