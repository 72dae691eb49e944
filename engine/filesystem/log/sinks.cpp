#include "engine/filesystem/log/sinks.h"

#include "engine/platform/process.h"

namespace logging {

constinit State state;

namespace {

void call(const std::atomic<LogPrintCallback>& callback, const Message& message, std::string_view output) {
    if (const LogPrintCallback print = callback.load(std::memory_order_acquire)) {
        print(message.level, message.category, output.data());
    }
}

}  // namespace

void ensure_started() {
    const StartUp phase = state.phase.load(std::memory_order_acquire);
    if (phase == StartUp::COMPLETE || phase == StartUp::CLOSED) return;
    const auto run = state.run.load(std::memory_order_acquire);
    const auto may_start_now = state.may_start_now.load(std::memory_order_acquire);
    if (run != nullptr && (may_start_now == nullptr || may_start_now())) run();
}

void send(const Message& message, std::string_view output) {
    if ((message.action & CLFilterAction::LOGFILE) != 0) {
        ensure_started();
        const auto write = state.write_to_file.load(std::memory_order_acquire);
        if (write != nullptr && !output.empty()) write(output.data(), output.size());
        call(state.file_callback, message, output);
    }
    if ((message.action & CLFilterAction::CONSOLE) != 0) {
        call(state.console_callback, message, output);
        void* const console = state.console.load(std::memory_order_acquire);
        if (console != nullptr && !output.empty()) platform::write_console(console, output.data(), output.size());
    }
}

}  // namespace logging

LogPrintCallback LogSetPrintCallback(LogPrintCallback callback) {
    return logging::state.console_callback.exchange(callback, std::memory_order_acq_rel);
}

LogPrintCallback CrashSetPrintCallback(LogPrintCallback callback) {
    return logging::state.file_callback.exchange(callback, std::memory_order_acq_rel);
}
