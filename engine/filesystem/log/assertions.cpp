// Failed assertions: who is asked about them, and what becomes of the answer.
#include <engine/filesystem/log/assert.h>

#include <cstdarg>
#include <cstdlib>
#include <new>
#include <string>

#include "engine/filesystem/log/message.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/kernel/text.h"
#include "engine/platform/crash.h"
#include "engine/platform/process.h"

namespace {

struct AssertState {
    std::atomic<smart_assert_handler> handler{nullptr};
    std::atomic<std::int32_t> count{0};
};
constinit AssertState state;

constexpr MessageSource source{"Assert", "engine/filesystem/kernelimports"};
constexpr int most_frames = 32;

[[gnu::noinline]] void add_call_stack(std::string& text) {
    void* frames[most_frames];
    // This function, the one below and the one that the macro calls are no news.
    const int count = platform::capture_stack(frames, most_frames, 3);
    for (int i = 0; i < count; ++i) {
        char line[512];
        platform::describe_frame(frames[i], line, sizeof(line));
        text.append("  ").append(line).append("\n");
    }
}

EAssertionResult::TYPE result_of(platform::Answer answer) {
    if (answer == platform::Answer::ABORT) return EAssertionResult::ABORT;
    return answer == platform::Answer::RETRY ? EAssertionResult::BREAK : EAssertionResult::IGNORE_ONCE;
}

/// The handler while the host has set none.
[[gnu::noinline]] EAssertionResult::TYPE ask_about_assertion(const smart_assert_data& data) try {
    constexpr std::uint32_t abort_retry_ignore_hand_task_modal = 0x00012012;
    std::string text = std::string("Assertion failed: ") + data.expression + "\n";
    if (data.message[0] != '\0') text += std::string(data.message) + "\n";
    text += std::string(data.file) + "(" + std::to_string(data.line) + "): " + data.function + "\n";
    if (logging::state.call_stacks) add_call_stack(text);
    log_message(source, Log::ELevel::ERRR, __LINE__, "%s", text.c_str());
    if (!logging::state.message_boxes) return EAssertionResult::IGNORE_ONCE;
    return result_of(platform::show_message(text.c_str(), "Assertion failed", abort_retry_ignore_hand_task_modal,
                                            platform::Answer::CARRY_ON));
} catch (const std::bad_alloc&) {
    return EAssertionResult::IGNORE_ONCE;
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
    const smart_assert_handler handler = GetAssertFunc();
    obey(handler != nullptr ? handler(data) : ask_about_assertion(data), site);
}

void SetAssertFunc(smart_assert_handler handler) { state.handler.store(handler, std::memory_order_release); }
smart_assert_handler GetAssertFunc() { return state.handler.load(std::memory_order_acquire); }

void IncreaseAssertCount() { state.count.fetch_add(1, std::memory_order_relaxed); }
std::int32_t GetAssertCount() { return state.count.load(std::memory_order_relaxed); }
