#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace kernel::config {

/// Keeps texts at addresses that never change, in few blocks.
class TextArena {
public:
    /// Room for `length` characters and a terminator. May throw std::bad_alloc.
    char* reserve(std::size_t length) {
        if (length + 1 > left_) add_block(length + 1);
        char* const start = next_;
        next_ += length + 1;
        left_ -= length + 1;
        return start;
    }
    /// A terminated copy.
    const char* store(std::string_view text) {
        char* const start = reserve(text.size());
        if (!text.empty()) std::memcpy(start, text.data(), text.size());
        start[text.size()] = '\0';
        return start;
    }

private:
    void add_block(std::size_t needed) {
        const std::size_t size = needed > smallest_block ? needed : smallest_block;
        blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
        next_ = blocks_.back().get();
        left_ = size;
    }

    static constexpr std::size_t smallest_block = 32768;
    std::vector<std::unique_ptr<char[]>> blocks_;
    char* next_ = nullptr;
    std::size_t left_ = 0;
};

}  // namespace kernel::config
