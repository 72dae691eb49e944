#include "engine/filesystem/log/state.h"

namespace logging {

constinit State state;

StartUpValues& start_up_values() { return state.start_up; }

void ensure_started() {
    const StartUp phase = state.start_up.phase.load(std::memory_order_acquire);
    if (phase == StartUp::COMPLETE || phase == StartUp::CLOSED) return;
    const auto run = state.start_up.run.load(std::memory_order_acquire);
    if (run == nullptr) return;
    const auto may_start_now = state.start_up.may_start_now.load(std::memory_order_acquire);
    if (may_start_now != nullptr && !may_start_now()) return;
    run();
}

std::uint32_t error_count() { return state.errors.load(std::memory_order_relaxed); }
std::uint32_t warning_count() { return state.warnings.load(std::memory_order_relaxed); }

}  // namespace logging
