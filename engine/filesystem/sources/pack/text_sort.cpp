#include "engine/filesystem/sources/pack/text_sort.h"

#include <algorithm>
#include <cstddef>

#include "engine/filesystem/sources/pack/bytes.h"

// Names of a pack share long beginnings, and comparing them byte by byte from the start again and again is most of the
// cost of sorting them. So texts are sorted by eight bytes at a time, held as one number beside the index; only runs of
// equal numbers go on to the next eight bytes.

namespace fs {

namespace {

struct Key {
    std::uint64_t prefix;  // eight bytes of the text, the first one highest, zeros behind its end
    std::uint32_t text;
};

constexpr std::size_t fewest_for_passes = 200;

struct Run {
    std::size_t first;
    std::size_t last;
    std::size_t depth;  // bytes that all texts of the run have in common
};

std::uint64_t load_prefix(std::string_view text, std::size_t depth) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data()) + depth;
    const std::size_t left = text.size() - depth;
    if (left >= 8) return get_u64_highest_first(bytes);
    std::uint64_t prefix = 0;
    for (std::size_t i = 0; i < left; ++i) prefix |= std::uint64_t{bytes[i]} << (56 - 8 * i);
    return prefix;
}

bool before(const Key& a, const Key& b) { return a.prefix != b.prefix ? a.prefix < b.prefix : a.text < b.text; }

/// Sorts by the bytes of the prefix that differ at all, the last one first; each pass keeps the order of equals.
void sort_by_bytes(Key* first, Key* last, std::uint64_t differing, std::vector<Key>& spare) {
    const auto count = static_cast<std::size_t>(last - first);
    if (spare.size() < count) spare.resize(count);
    Key* from = first;
    Key* to = spare.data();
    for (std::uint32_t shift = 0; shift < 64; shift += 8) {
        if ((differing >> shift & 0xFF) == 0) continue;
        std::uint32_t starts[257] = {};
        for (std::size_t i = 0; i < count; ++i) ++starts[(from[i].prefix >> shift & 0xFF) + 1];
        for (std::size_t byte = 1; byte < 256; ++byte) starts[byte] += starts[byte - 1];
        for (std::size_t i = 0; i < count; ++i) to[starts[from[i].prefix >> shift & 0xFF]++] = from[i];
        std::swap(from, to);
    }
    if (from != first) std::copy(from, from + count, first);
}

/// Sorts one run by its next eight bytes.
void sort_run(std::vector<Key>& keys, const Run& run, const std::vector<std::string_view>& texts,
              std::vector<Key>& spare) {
    Key* first = keys.data() + run.first;
    Key* last = keys.data() + run.last;
    std::uint64_t differing = 0;
    bool in_order = true;
    for (Key* key = first; key < last; ++key) {
        key->prefix = load_prefix(texts[key->text], run.depth);
        differing |= key->prefix ^ first->prefix;
        in_order = in_order && (key == first || key[-1].prefix <= key->prefix);
    }
    if (in_order) return;
    if (run.last - run.first < fewest_for_passes) {
        std::sort(first, last, before);
    } else {
        sort_by_bytes(first, last, differing, spare);
    }
}

/// Remembers the runs of equal prefixes inside `run`: those still undecided, whose texts go on, and those decided.
void push_runs(const std::vector<Key>& keys, const Run& run, std::vector<Run>& todo, std::vector<TextRun>* equal) {
    std::size_t first = run.first;
    while (first < run.last) {
        std::size_t last = first + 1;
        while (last < run.last && keys[last].prefix == keys[first].prefix) ++last;
        const bool goes_on = (keys[first].prefix & 0xFF) != 0;
        if (last - first > 1 && goes_on) todo.push_back({first, last, run.depth + 8});
        if (last - first > 1 && !goes_on && equal) {
            equal->push_back({static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(last)});
        }
        first = last;
    }
}

}  // namespace

std::vector<std::uint32_t> sorted_by_text(const std::vector<std::string_view>& texts, std::vector<TextRun>* equal) {
    std::vector<Key> keys(texts.size());
    for (std::uint32_t i = 0; i < keys.size(); ++i) keys[i].text = i;
    std::vector<Run> todo;
    std::vector<Key> spare;
    if (keys.size() > 1) todo.push_back({0, keys.size(), 0});
    while (!todo.empty()) {
        const Run run = todo.back();
        todo.pop_back();
        sort_run(keys, run, texts, spare);
        push_runs(keys, run, todo, equal);
    }
    std::vector<std::uint32_t> order(keys.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = keys[i].text;
    return order;
}

}  // namespace fs
