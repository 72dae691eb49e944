#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <engine/filesystem/log.h>

#include "engine/filesystem/log/levels.h"

namespace logging {

/// One call of _CLogV, without its text.
struct Message {
    Log::ELevel::TYPE level;
    const char* category;  // not null
    const char* file;      // null: lines carry no position
    int line;
    CLFilterAction::ENUM action;
    CLLineMode::ENUM mode;
};

/// What one message leaves for the next.
struct LineState {
    CategoryKey category;
    std::uint32_t level = 0;
    std::uint32_t widest_header = 0;
    std::uint64_t is_open = 0;  // the line; 0 or 1
};

/// Any thread, and nobody waits: a state that two threads store at once may be mixed of both.
LineState load_line_state();
void store_line_state(const LineState& line);

inline constexpr std::size_t message_limit = 65536;
/// No header is longer: a position longer than its share is cut.
inline constexpr std::size_t position_limit = 1024;
inline constexpr std::size_t header_limit = position_limit + 64;
/// Room in which every message can be written: the limit is looked at before a header, not after it.
inline constexpr std::size_t output_capacity = message_limit + header_limit + 8;

/// Lays out the text of a message in lines with their headers, behind the line that `line` tells of, and brings that
/// forward.
///
/// Returns  the length of the output, which ends in a zero beyond it; nothing when `output` is too small, and then both
///          are of no use.
std::optional<std::size_t> lay_out(const Message& message, std::string_view text, LineState& line,
                                   std::span<char> output);

}  // namespace logging
