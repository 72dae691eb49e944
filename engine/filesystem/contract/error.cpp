// The last error of each thread, and what a failure of the disk means to callers.
#include "engine/filesystem/contract/failure.h"

#include <array>
#include <iterator>
#include <utility>

#include "engine/platform/text.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

using ThreadError = platform::ThreadObject<SFsError>;
/// Set while the thread's failure is the kind alone, for want of a record of it.
constinit platform::PerThread<EFSError::TYPE, struct BareErrorKind> bare_kind;
constinit platform::PerThread<const ErrorScope*, ErrorScope> innermost_scope;
/// How many ErrorKeepers stand on the thread's stack.
constinit platform::PerThread<int, ErrorKeeper> keepers;

/// A failure of which nothing but its kind is known.
const SFsError& bare_error(EFSError::TYPE code) {
    struct Bare {
        std::array<SFsError, EFSError::IO + 1> of;
        Bare() {
            for (std::size_t i = 0; i < of.size(); ++i) of[i].code = static_cast<EFSError::TYPE>(i);
        }
    };
    static const platform::NeverDestroyed<Bare> errors;
    return errors.value.of[code];
}

/// The thread's record, for a failure of this kind; null when there can be none, and then the kind is stored.
SFsError* record_of(EFSError::TYPE code) {
    SFsError* const error = ThreadError::make();
    bare_kind = error == nullptr ? code : EFSError::NONE;
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

void set_error(EFSError::TYPE code, const char* path, std::string_view text, std::int32_t os_code) noexcept {
    const ErrorScope* const scope = innermost_scope;
    const bool says_less = code == EFSError::NOT_FOUND && scope != nullptr && scope->has_error();
    if (keepers != 0 || (says_less && last_error().code != EFSError::NOT_FOUND)) return;
    fs::string kept_path;
    try {
        kept_path = path != nullptr ? path : "";  // which may be the stored one itself
    } catch (...) {                               // the path is lost
    }
    if (scope != nullptr) scope->note();
    SFsError* const error = record_of(code);
    if (error == nullptr) return;
    error->code = code;
    error->os_code = os_code;
    error->path = std::move(kept_path);
    try {
        error->text = text;
    } catch (...) {
        error->text.clear();
    }
}

ErrorScope::ErrorScope() : outer_(innermost_scope) { innermost_scope = this; }

ErrorScope::~ErrorScope() {
    innermost_scope = outer_;
    if (!found_ || outer_ == nullptr || outer_->found_) return;
    outer_->found_ = true;
    outer_->before_ = std::move(before_);
}

void ErrorScope::note() const {
    if (std::exchange(found_, true)) return;
    SFsError* const error = bare_kind == EFSError::NONE ? ThreadError::find() : nullptr;
    before_ = error != nullptr ? std::move(*error) : SFsError{.code = bare_kind, .path = {}, .text = {}};
}

void ErrorScope::forget() {
    if (!std::exchange(found_, false)) return;
    if (SFsError* const error = record_of(before_.code)) *error = std::move(before_);
}

ErrorKeeper::ErrorKeeper() { ++keepers; }
ErrorKeeper::~ErrorKeeper() { --keepers; }

void set_error_from_platform(const char* path, std::string_view action, const platform::Error& error) noexcept {
    const Meaning& meaning = meaning_of(error.failure);
    char text[256];
    platform::BoundedText words(text);
    words.add("The file or directory ").add(action).add(' ').add(meaning.reason).add('.');
    set_error(meaning.code, path, words.view(), error.os_code);
}

bool refuse(EFSError::TYPE code, const char* path, std::string_view text) noexcept {
    return set_error(code, path, text), false;
}

bool refuse_by_disk(const char* path, std::string_view action) noexcept {
    return set_error_from_platform(path, action, platform::last_error()), false;
}

EFSError::TYPE error_from_platform(platform::Failure failure) { return meaning_of(failure).code; }

}  // namespace fs
