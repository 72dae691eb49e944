#pragma once

#include <atomic>
#include <cstdint>

#include <engine/filesystem/api.h>

/// What becomes of a failed assertion.
struct EAssertionResult {
    enum TYPE : std::uint32_t {
        IGNORE_ONCE = 0,
        IGNORE_ALWAYS = 1,  // this place is never reported again
        BREAK = 2,          // stop in the debugger; without one the process ends there
        ABORT = 3,          // end the process with std::abort
    };
};

/// One failed assertion, valid while its handler runs.
struct smart_assert_data {
    const char* expression;  // as written
    const char* file;
    int line;
    const char* function;
    const char* message;  // "" when there is none
    std::int32_t count;   // assertions that failed so far, this one included
};

/// One place in the code that asserts something.
struct smart_assert_site {
    const char* expression;
    const char* file;
    int line;
    std::atomic<bool> ignored{false};
};

using smart_assert_handler = EAssertionResult::TYPE (*)(const smart_assert_data&);

/// Checks something that only a mistake in the program can make false, never input. A message may follow, as for printf.
/// Costs one predicted branch while it holds.
///
///     SMART_ASSERT(index < count, "index %u of %u", index, count);
#define SMART_ASSERT(condition, ...)                                                              \
    do {                                                                                          \
        if (!(condition)) [[unlikely]] {                                                          \
            static constinit smart_assert_site smart_assert_here{#condition, __FILE__, __LINE__}; \
            smart_assert_failed(smart_assert_here, __func__ __VA_OPT__(, ) __VA_ARGS__);          \
        }                                                                                         \
    } while (false)

/// What the macro calls: counts the failure, asks the handler and does what it answers.
ENGINE_FS_API void smart_assert_failed(smart_assert_site& site, const char* function, const char* format = nullptr,
                                       ...);

/// Installs the handler of failed assertions; null brings the default one back. The default logs the assertion and shows
/// a box (Abort, Retry to break, Ignore). Without a desktop the box is printed on standard error, with message boxes
/// switched off there is none; either way the answer is IGNORE_ONCE.
ENGINE_FS_API void SetAssertFunc(smart_assert_handler handler);
/// The handler that was installed, null for the default one.
ENGINE_FS_API smart_assert_handler GetAssertFunc();

ENGINE_FS_API void IncreaseAssertCount();
ENGINE_FS_API std::int32_t GetAssertCount();
