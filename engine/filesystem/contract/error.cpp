#include "engine/filesystem/contract/error.h"

#include <array>
#include <iterator>
#include <new>
#include <utility>

#include "engine/platform/never_destroyed.h"
#include "engine/platform/per_thread.h"

namespace fs {

namespace {

using ThreadError = platform::ThreadObject<SFsError>;

/// Set while the thread's failure is the kind alone, for want of memory for a record of it.
constinit platform::PerThread<EFSError::TYPE, struct BareErrorKind> bare_kind;
constinit platform::PerThread<ErrorScope::State*, ErrorScope> innermost_scope;
/// How many ErrorKeepers stand on the thread's stack.
constinit platform::PerThread<int, ErrorKeeper> keepers;

/// A failure of which nothing but its kind is known.
const SFsError& bare_error(EFSError::TYPE code) {
    static constexpr std::size_t kinds = EFSError::IO + 1;
    struct Bare {
        std::array<SFsError, kinds> of;
        Bare() {
            for (std::size_t i = 0; i < kinds; ++i) of[i].code = static_cast<EFSError::TYPE>(i);
        }
    };
    static const platform::NeverDestroyed<Bare> errors;
    return errors.value.of[code];
}

/// Whether a failure of this kind may take the place of what is stored.
bool says_more(EFSError::TYPE code) {
    if (keepers != 0) return false;
    const ErrorScope::State* const scope = innermost_scope;
    const bool found = scope != nullptr && scope->found;
    return !found || code != EFSError::NOT_FOUND || last_error().code == EFSError::NOT_FOUND;
}

/// Before the first failure of a scope is stored: keeps what it takes the place of.
void note_in_scope() {
    ErrorScope::State* const scope = innermost_scope;
    if (scope == nullptr || scope->found) return;
    scope->found = true;
    SFsError* const error = bare_kind == EFSError::NONE ? ThreadError::find() : nullptr;
    scope->before.reset(new (std::nothrow) SFsError{.code = bare_kind, .path = {}, .text = {}});
    if (scope->before != nullptr && error != nullptr) *scope->before = std::move(*error);
}

/// The thread's record with this kind, for the words; null when there is no memory for it.
SFsError* store_kind(EFSError::TYPE code, const char* path, std::int32_t os_code) {
    // The words may be lost for want of memory; that there was a failure, and of which kind, is not.
    fs::string kept_path;
    try {
        kept_path.assign(path != nullptr ? path : "");  // which may be the stored one itself
    } catch (...) {
        kept_path.clear();
    }
    note_in_scope();
    SFsError* const error = ThreadError::make();
    bare_kind = error == nullptr ? code : EFSError::NONE;
    if (error == nullptr) return nullptr;
    error->code = code;
    error->os_code = os_code;
    error->path = std::move(kept_path);
    return error;
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

const SFsError& last_error() {
    const EFSError::TYPE bare = bare_kind;
    const SFsError* const error = bare == EFSError::NONE ? ThreadError::find() : nullptr;
    return error != nullptr ? *error : bare_error(bare);
}

void clear_error() {
    bare_kind = EFSError::NONE;
    SFsError* const error = ThreadError::find();
    if (error == nullptr) return;
    error->code = EFSError::NONE;
    error->os_code = 0;
    error->path.clear();
    error->text.clear();
}

void set_error(EFSError::TYPE code, const char* path, std::string text, std::int32_t os_code) {
    if (!says_more(code)) return;
    if (SFsError* const error = store_kind(code, path, os_code)) error->text = std::move(text);
}

void set_error(EFSError::TYPE code, const char* path, const char* text, std::int32_t os_code) noexcept {
    if (!says_more(code)) return;
    SFsError* const error = store_kind(code, path, os_code);
    try {
        if (error != nullptr) error->text.assign(text);
    } catch (...) {
        error->text.clear();
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
    if (state_.before == nullptr) return;
    SFsError* const error = ThreadError::make();
    bare_kind = error == nullptr ? state_.before->code : EFSError::NONE;
    if (error != nullptr) *error = std::move(*state_.before);
    state_.before.reset();
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
