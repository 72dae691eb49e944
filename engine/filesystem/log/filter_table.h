#pragma once

#include <atomic>
#include <cstdint>

namespace logging {

/// A growing list of (mask, value, action). Readers neither lock nor wait; changers take turns.
///
/// Storage that was outgrown is kept, since a reader may still be walking it. It grows by a quarter at a time, so all
/// of it together stays within a few times the largest table ever needed. A table lives as long as the process.
class FilterTable {
public:
    void clear();
    /// Passed over when there is no memory for it.
    void add(std::uint32_t value, std::uint32_t mask, std::uint32_t action);
    /// Changes the first entry of this value; returns its old action, 0 when there is none.
    std::uint32_t update(std::uint32_t value, std::uint32_t action);
    /// The actions of all entries that match `id`, joined.
    std::uint32_t actions(std::uint32_t id) const;

private:
    struct Entry {
        std::atomic<std::uint32_t> mask;
        std::atomic<std::uint32_t> value;
        std::atomic<std::uint32_t> action;
    };
    struct Outgrown {
        Entry* entries;
        Outgrown* older;
    };
    bool reserve(std::uint32_t count);
    void copy_entries(Entry* to) const;
    std::uint32_t actions_once(std::uint32_t id) const;

    std::atomic<std::uint32_t> changes_{0};  // odd while an entry is being written
    std::atomic<std::uint32_t> count_{0};
    std::atomic<Entry*> entries_{nullptr};
    std::uint32_t capacity_ = 0;    // guarded by the changers' lock
    Outgrown* outgrown_ = nullptr;  // guarded by the changers' lock
};

extern FilterTable filter_table;

}  // namespace logging
