#include "engine/filesystem/startup/crash/assert.h"

#include <string>

#include <engine/filesystem/startup/crash.h>

#include "engine/filesystem/log/message.h"
#include "engine/platform/crash.h"
#include "engine/platform/process.h"

namespace crash {

namespace {

constexpr MessageSource source{"Assert", "engine/filesystem/kernelimports"};
constexpr int most_frames = 32;

void add_call_stack(std::string& text) {
    void* frames[most_frames];
    // This function, the handler, and the function that the macro calls are no news.
    const int count = platform::capture_stack(frames, most_frames, 3);
    for (int i = 0; i < count; ++i) {
        char line[512];
        platform::describe_frame(frames[i], line, sizeof(line));
        text += "  ";
        text += line;
        text += '\n';
    }
}

std::string describe(const smart_assert_data& data) {
    std::string text = std::string("Assertion failed: ") + data.expression + "\n";
    if (data.message[0] != '\0') text += std::string(data.message) + "\n";
    text += std::string(data.file) + "(" + std::to_string(data.line) + "): " + data.function + "\n";
    if (CrashCanShowCallstackInAsserts()) add_call_stack(text);
    return text;
}

EAssertionResult::TYPE result_of(platform::Answer answer) {
    if (answer == platform::Answer::ABORT) return EAssertionResult::ABORT;
    return answer == platform::Answer::RETRY ? EAssertionResult::BREAK : EAssertionResult::IGNORE_ONCE;
}

}  // namespace

EAssertionResult::TYPE ask_about_assertion(const smart_assert_data& data) try {
    constexpr std::uint32_t abort_retry_ignore_hand_task_modal = 0x00012012;
    const std::string text = describe(data);
    log_message(source, Log::ELevel::ERRR, __LINE__, "%s", text.c_str());
    if (!CrashCanShowMessageBox()) return EAssertionResult::IGNORE_ONCE;
    return result_of(platform::show_message(text.c_str(), "Assertion failed", abort_retry_ignore_hand_task_modal,
                                            platform::Answer::CARRY_ON));
} catch (const std::bad_alloc&) {
    return EAssertionResult::IGNORE_ONCE;
}

}  // namespace crash
