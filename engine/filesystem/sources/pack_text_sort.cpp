#include "engine/filesystem/sources/pack_text_sort.h"

#include <algorithm>
#include <cstddef>

// Names of a pack share long beginnings, and comparing them byte by byte from the start again and again is most of the
// cost of sorting them. So texts are sorted by eight bytes at a time, held as one number beside the index; only runs of
// equal numbers go on to the next eight bytes.

namespace fs {

namespace {

struct Key {
    std::uint64_t prefix;  // eight bytes of the text, the first one highest, zeros behind its end
    std::uint32_t rank;    // place before sorting: decides between equal texts
    std::uint32_t text;
};

struct Run {
    std::size_t first;
    std::size_t last;
    std::size_t depth;  // bytes that all texts of the run have in common
};

std::uint64_t load_prefix(std::string_view text, std::size_t depth) {
    const char* bytes = text.data() + depth;
    const std::size_t left = text.size() - depth;
    std::uint64_t prefix = 0;
    if (left >= 8) {
        for (std::size_t i = 0; i < 8; ++i) prefix = prefix << 8 | static_cast<unsigned char>(bytes[i]);
        return prefix;
    }
    for (std::size_t i = 0; i < left; ++i)
        prefix |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (56 - 8 * i);
    return prefix;
}

bool before(const Key& a, const Key& b) { return a.prefix != b.prefix ? a.prefix < b.prefix : a.rank < b.rank; }

/// Sorts one run by its next eight bytes.
void sort_run(std::vector<Key>& keys, const Run& run, const std::vector<std::string_view>& texts) {
    bool all_equal = true;
    for (std::size_t i = run.first; i < run.last; ++i) {
        keys[i].prefix = load_prefix(texts[keys[i].text], run.depth);
        all_equal = all_equal && keys[i].prefix == keys[run.first].prefix;
    }
    if (!all_equal) {
        std::sort(keys.begin() + static_cast<std::ptrdiff_t>(run.first),
                  keys.begin() + static_cast<std::ptrdiff_t>(run.last), before);
    }
}

/// Remembers the runs inside `run` that are still undecided: equal prefixes whose texts go on.
void push_undecided(const std::vector<Key>& keys, const Run& run, std::vector<Run>& todo) {
    std::size_t first = run.first;
    while (first < run.last) {
        std::size_t last = first + 1;
        while (last < run.last && keys[last].prefix == keys[first].prefix) ++last;
        const bool goes_on = (keys[first].prefix & 0xFF) != 0;
        if (last - first > 1 && goes_on) todo.push_back({first, last, run.depth + 8});
        first = last;
    }
}

}  // namespace

void sort_by_text(std::vector<std::uint32_t>& order, const std::vector<std::string_view>& texts) {
    std::vector<Key> keys(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) keys[i] = {0, static_cast<std::uint32_t>(i), order[i]};
    std::vector<Run> todo;
    if (keys.size() > 1) todo.push_back({0, keys.size(), 0});
    while (!todo.empty()) {
        const Run run = todo.back();
        todo.pop_back();
        sort_run(keys, run, texts);
        push_undecided(keys, run, todo);
    }
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = keys[i].text;
}

}  // namespace fs
