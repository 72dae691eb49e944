#include "engine/filesystem/contract/set_error.h"

#include <iterator>
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

/// What a failure of the seam is to callers, in the order of platform::Failure.
struct Meaning {
    EFSError::TYPE code;
    const char* reason;
};
constexpr Meaning meanings[] = {
    {EFSError::NONE, "for no known reason"},
    {EFSError::NOT_FOUND, "because it is not on the disk"},
    {EFSError::ACCESS_DENIED, "because the system denies access"},
    {EFSError::IN_USE, "because it is in use"},
    {EFSError::ALREADY_EXISTS, "because it exists already"},
    {EFSError::ALREADY_EXISTS, "because the directory is not empty"},
    {EFSError::DISK_FULL, "because the disk is full"},
    {EFSError::INVALID_NAME, "because its path is longer than 259 bytes"},
    {EFSError::ACCESS_DENIED, "because it is no regular file"},
    {EFSError::READ_ONLY, "because it is read-only"},
    {EFSError::INVALID_NAME, "because the name is not allowed"},
    {EFSError::INVALID_ARGUMENT, "because the file is not open"},
    {EFSError::CANCELLED, "because the operation was aborted"},
    {EFSError::OUT_OF_MEMORY, "because there is not enough memory"},
    {EFSError::IO, "because too many files are open"},
    {EFSError::IO, "because the device failed to read or write"},
    {EFSError::IO, "because the system failed"},
};
static_assert(std::size(meanings) == static_cast<std::size_t>(platform::Failure::OTHER) + 1);

const Meaning& meaning_of(platform::Failure failure) { return meanings[static_cast<std::size_t>(failure)]; }

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
    const Meaning& meaning = meaning_of(error.failure);
    try {
        std::string text = std::string("The file or directory ") + action + " " + meaning.reason + ".";
        set_error(meaning.code, path, std::move(text), error.os_code);
    } catch (...) {
        set_error(meaning.code, path, "", error.os_code);
    }
}

bool refuse(EFSError::TYPE code, const char* path, const char* text) noexcept {
    set_error(code, path, text);
    return false;
}

bool refuse_by_disk(const char* path, const char* action) {
    set_error_from_platform(path, action, platform::last_error());
    return false;
}

EFSError::TYPE error_from_platform(platform::Failure failure) { return meaning_of(failure).code; }

}  // namespace fs
