#pragma once

#include <atomic>
#include <cstdint>

#include <engine/filesystem/log.h>

#include "engine/filesystem/log/hooks.h"

namespace logging {

/// The log core's process-wide values. Messages of several threads may interleave and mis-align; each value by itself
/// is whole, and nobody waits for anybody.
struct State {
    std::atomic<CLFilterMode::ENUM> filter_mode{CLFilterMode::NORMAL};
    std::atomic<std::uint32_t> errors{0};
    std::atomic<std::uint32_t> warnings{0};

    // The line before the next message.
    std::atomic<std::uint32_t> previous_level{0};
    std::atomic<std::uint64_t> previous_category[2] = {};
    std::atomic<std::uint32_t> widest_header{0};
    std::atomic<bool> line_open{false};

    std::atomic<LogPrintCallback> console_callback{nullptr};
    std::atomic<LogPrintCallback> file_callback{nullptr};

    StartUpValues start_up;
};

extern State state;

}  // namespace logging
