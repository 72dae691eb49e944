#pragma once

#include <cstddef>
#include <cstdint>

#include <engine/filesystem/log.h>

#include "engine/filesystem/log/category.h"

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
    std::uint32_t level = 0;
    CategoryKey category;
    std::uint32_t widest_header = 0;
    bool open = false;
};

inline constexpr std::size_t message_limit = 65536;
/// No header is longer: a position longer than its share is cut.
inline constexpr std::size_t position_limit = 1024;
inline constexpr std::size_t header_limit = position_limit + 64;
/// Room in which every message can be written: the limit is looked at before a header, not after it.
inline constexpr std::size_t output_capacity = message_limit + header_limit + 8;

/// Turns the text of one message into output lines in a buffer of the caller.
class LineWriter {
public:
    /// `state` is the line before this message; the writer works on its own copy.
    LineWriter(const Message& message, const LineState& state, char* output, std::size_t capacity);

    /// False when `capacity` was too small; the output is then of no use. Call it once.
    bool write(const char* text, std::size_t length);

    std::size_t size() const { return size_; }
    const LineState& state() const { return state_; }

private:
    bool fits(std::size_t count) const { return count < capacity_ - size_; }
    std::size_t limit() const { return message_limit - (state_.widest_header + 4); }
    void put(const char* text, std::size_t length);
    void open_line();
    void write_header();
    void end_line(bool has_return);
    std::size_t copy_run(const char* text, std::size_t length);

    const Message& message_;
    LineState state_;
    CLLineMode::ENUM mode_;
    bool first_line_ = true;
    char* const output_;
    const std::size_t capacity_;
    std::size_t size_ = 0;
};

}  // namespace logging
