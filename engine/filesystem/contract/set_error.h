#pragma once

#include <memory>
#include <string>

#include <engine/filesystem/contract/error.h>

#include "engine/platform/error.h"

namespace fs {

/// Stores the calling thread's failure. Only failing paths call these, so that good ones pay nothing.
void set_error(EFSError::TYPE code, const char* path, std::string text, std::int32_t os_code = 0);
/// The same for words that are known beforehand; never throws.
void set_error(EFSError::TYPE code, const char* path, const char* text, std::int32_t os_code = 0) noexcept;
/// The same from the seam's own account of what went wrong; `action` is a phrase like "cannot be opened".
void set_error_from_platform(const char* path, const char* action, const platform::Error& error);
EFSError::TYPE error_from_platform(platform::Failure failure);

/// set_error, and false: a refusal in one line.
bool refuse(EFSError::TYPE code, const char* path, const char* text) noexcept;
/// The same with what the seam's latest failure tells.
bool refuse_by_disk(const char* path, const char* action);

/// Spans a walk over sources of which each may fail in its own way. Within it a NOT_FOUND does not take the place of a
/// failure that says more: that one source was in use is why the open failed, not that the next one lacks the name.
/// When the walk succeeds in the end, what failed on the way is forgotten.
class ErrorScope {
public:
    ErrorScope();
    ~ErrorScope();
    ErrorScope(const ErrorScope&) = delete;
    ErrorScope& operator=(const ErrorScope&) = delete;

    /// Whether a failure was stored since the scope began.
    bool has_error() const { return state_.found; }
    /// Puts back what was stored before the scope began.
    void forget();

    struct State {
        State* outer;  // of the scope around this one
        bool found = false;
        std::unique_ptr<SFsError> before;  // once found: what was stored when the scope began
    };

private:
    State state_;
};

/// Stores a failure unless one that says more was stored since `scope` began; false.
inline bool fail_unless_told(const ErrorScope& scope, EFSError::TYPE code, const char* path,
                             const char* text) noexcept {
    return !scope.has_error() && refuse(code, path, text);
}

/// Work that is done in passing, such as a log line on its way to the file: no failure within it is stored, so that what
/// was stored before stays.
class ErrorKeeper {
public:
    ErrorKeeper();
    ~ErrorKeeper();
    ErrorKeeper(const ErrorKeeper&) = delete;
    ErrorKeeper& operator=(const ErrorKeeper&) = delete;
};

}  // namespace fs
