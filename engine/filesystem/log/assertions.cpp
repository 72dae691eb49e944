#include <engine/filesystem/log/assert.h>

#include <cstdarg>
#include <cstdlib>

#include "engine/filesystem/log/sinks.h"
#include "engine/kernel/text.h"
#include "engine/platform/crash.h"

namespace {

struct AssertState {
    std::atomic<smart_assert_handler> handler{nullptr};
    std::atomic<std::int32_t> count{0};
};
constinit AssertState state;

EAssertionResult::TYPE ask(const smart_assert_data& data) {
    smart_assert_handler handler = GetAssertFunc();
    if (handler == nullptr) handler = logging::state.default_assert_handler.load(std::memory_order_acquire);
    return handler == nullptr ? EAssertionResult::IGNORE_ONCE : handler(data);
}

void obey(EAssertionResult::TYPE result, smart_assert_site& site) {
    if (result == EAssertionResult::IGNORE_ALWAYS) site.ignored.store(true, std::memory_order_relaxed);
    if (result == EAssertionResult::BREAK) platform::break_into_debugger();
    if (result == EAssertionResult::ABORT) std::abort();
}

}  // namespace

void smart_assert_failed(smart_assert_site& site, const char* function, const char* format, ...) {
    if (site.ignored.load(std::memory_order_relaxed)) return;
    char message[1024] = "";
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        kernel::format_text(message, sizeof(message), format, args);
        va_end(args);
    }
    const smart_assert_data data{.expression = site.expression,
                                 .file = site.file,
                                 .line = site.line,
                                 .function = function,
                                 .message = message,
                                 .count = state.count.fetch_add(1, std::memory_order_relaxed) + 1};
    obey(ask(data), site);
}

void SetAssertFunc(smart_assert_handler handler) { state.handler.store(handler, std::memory_order_release); }
smart_assert_handler GetAssertFunc() { return state.handler.load(std::memory_order_acquire); }

void IncreaseAssertCount() { state.count.fetch_add(1, std::memory_order_relaxed); }
std::int32_t GetAssertCount() { return state.count.load(std::memory_order_relaxed); }
