#pragma once

#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "engine/filesystem/contract/set_error.h"

namespace fs {

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
    } catch (const std::system_error&) {  // on Windows a mutex takes memory when it is first locked
        set_error(EFSError::OUT_OF_MEMORY, path, "There is not enough memory for a lock.");
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
