#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <engine/filesystem/contract/error.h>

#include "engine/platform/error.h"

// How a failure becomes the thread's last error, and how it leaves an exported function.

namespace fs {

/// Stores the calling thread's failure. Only failing paths call these, so that good ones pay nothing.
/// The words may be lost for want of memory; that there was a failure, and of which kind, is not.
void set_error(EFSError::TYPE code, const char* path, std::string_view text, std::int32_t os_code = 0) noexcept;
/// The same from the seam's own account of what went wrong; `action` is a phrase like "cannot be opened".
void set_error_from_platform(const char* path, std::string_view action, const platform::Error& error) noexcept;
EFSError::TYPE error_from_platform(platform::Failure failure);

/// set_error, and false: a refusal in one line.
bool refuse(EFSError::TYPE code, const char* path, std::string_view text) noexcept;
/// The same with what the seam's latest failure tells.
bool refuse_by_disk(const char* path, std::string_view action) noexcept;

inline constexpr std::uint64_t failed_size = UINT64_MAX;
/// set_error, and all bits set: the same for what answers a size.
inline std::uint64_t fail(EFSError::TYPE code, std::string_view text, const char* path = "") noexcept {
    set_error(code, path, text);
    return failed_size;
}
inline std::uint64_t not_open() { return fail(EFSError::INVALID_ARGUMENT, "The stream is not open."); }

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
    bool has_error() const { return found_; }
    /// Puts back what was stored before the scope began.
    void forget();
    /// A failure is about to be stored: before the first one the scope keeps what that takes the place of.
    void note() const;

private:
    const ErrorScope* const outer_;  // the scope around this one
    mutable bool found_ = false;
    mutable SFsError before_;  // once found: what was stored when the scope began
};

/// Stores a failure unless one that says more was stored since `scope` began; false.
inline bool fail_unless_told(const ErrorScope& scope, EFSError::TYPE code, const char* path,
                             std::string_view text) noexcept {
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

/// Thrown by what has stored the thread's failure already: guarded answers and leaves the reason as it is.
struct StoredFailure {};

/// The boundary of an exported function: what `work()` answers, or `failure`, with the thread's failure set, when an
/// exception ends it. The one place that turns missing memory into an answer; inside, code simply throws.
/// `work` commits nothing before the last step that can throw, so that what fails leaves things as they were.
template <typename Result, typename Work>
Result guarded(const char* path, Result failure, Work&& work) noexcept {
    try {
        return std::forward<Work>(work)();
    } catch (const StoredFailure&) {
        return failure;
    } catch (const std::bad_alloc&) {
        set_error(EFSError::OUT_OF_MEMORY, path, "There is not enough memory.");
    } catch (const std::length_error&) {
        set_error(EFSError::TOO_LARGE, path, "This is longer than memory can hold.");
    } catch (...) {  // a caller's own source or callback
        set_error(EFSError::IO, path, "A source or callback of the host ended with an exception.");
    }
    return failure;
}

/// The same for functions without a result.
template <typename Work>
void guarded(const char* path, Work&& work) noexcept {
    guarded(path, false, [&] {
        std::forward<Work>(work)();
        return true;
    });
}

}  // namespace fs
