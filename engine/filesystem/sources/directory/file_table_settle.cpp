#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/sources/directory/file_table.h"
#include "engine/platform/memory.h"

// Putting a filled table in order: settling, and giving back the room of removed files.

namespace fs {

std::size_t FileTable::ring_bytes(std::uint32_t last) const {
    std::size_t words = 0;
    for (std::uint32_t file = record(last).next;; file = record(file).next) {
        words += record_words(record(file));
        if (file == last) return words * 4;
    }
}

// Copies the records of a ring one after the other to `offset` of the new store, and makes them a ring of their own. Each
// old record keeps where it went as its next. Returns the last of the new ring.
std::uint32_t FileTable::move_ring(std::uint32_t last, Settled& to, std::size_t offset) {
    auto place = static_cast<std::uint32_t>(offset / 4);
    std::uint32_t previous = none;
    Record* copy = nullptr;
    for (std::uint32_t file = record(last).next, next = none;; file = next) {
        const std::uint32_t words = record_words(record(file));
        void* const room = to.store.data() + std::size_t{place} * 4;
        copy = static_cast<Record*>(std::memcpy(room, &record(file), std::size_t{words} * 4));
        copy->previous = previous;
        copy->next = place + words;
        by_order_[copy->order] = previous = place;
        next = std::exchange(record(file).next, place);
        place += words;
        if (file == last) break;
    }
    copy->next = static_cast<std::uint32_t>(offset / 4);
    reinterpret_cast<Record*>(to.store.data() + offset)->previous = previous;
    return previous;
}

std::uint32_t FileTable::move_ring_to_end(std::uint32_t last, Settled& to) {
    const std::size_t offset = std::exchange(to.end, to.end + ring_bytes(last));
    return move_ring(last, to, offset);
}

// Names with many files are on no page: whoever has a tree asks few records, and those of a page are to be few.
void FileTable::move_many(Settled& to) {
    const auto moved = [this](std::uint32_t file) { return record(file).next; };
    for (const auto& many : many_) {
        if (!many) continue;
        many->last = move_ring_to_end(many->last, to);
        if (!many->tree_is_whole) continue;  // what is no longer asked may name files that are gone
        many->tree.renumber(moved);
        if (!many->has_answers) continue;
        for (ManyOfOneName::Answer& answer : many->answers) answer.file = moved(answer.file);
    }
}

// What a group of the index holds goes to its page as far as it fits.
void FileTable::move_group(std::size_t group, Settled& to) {
    std::size_t offset = to.pages_begin + group * to.page_bytes;
    const std::size_t end = offset + to.page_bytes;
    index_.for_each_of_group(group, [&](std::uint32_t& value) {
        if ((value & many_bit) != 0) return;
        const std::size_t bytes = ring_bytes(value);
        if (bytes > end - offset) {
            value = move_ring_to_end(value, to);
        } else {
            value = move_ring(value, to, std::exchange(offset, offset + bytes));
        }
    });
}

// The pages have a quarter more than the records need on the average, in whole lines of the processor's cache; the room is
// that of all pages, and of all records behind them, should none fit. What is not used of it was never touched.
bool FileTable::prepare(Settled& to) const {
    constexpr std::size_t most_lines = 6;
    std::size_t bytes = store_.size() - removed_words_ * 4;
    for (const auto& many : many_) bytes -= many ? std::min(bytes, ring_bytes(many->last)) : 0;
    const std::size_t lines = bytes / index_.groups() * 5 / 4 / cache_line + 1;
    to.page_bytes = std::min(lines, most_lines) * cache_line;
    const std::size_t pages = index_.groups() * to.page_bytes;
    if (pages + store_.size() > std::size_t{many_bit - 0x10000} * 4) return false;
    if (!to.store.extend(cache_line + pages + store_.size())) return false;
    platform::populate(to.store.data(), cache_line + pages);
    to.pages_begin = (cache_line - reinterpret_cast<std::uintptr_t>(to.store.data()) % cache_line) % cache_line;
    to.end = to.pages_begin + pages;
    return true;
}

void FileTable::settle() {
    constexpr std::size_t ahead = 8;  // groups whose records are fetched while another's are moved
    Settled to;
    if (count_ == 0 || !prepare(to)) return;
    move_many(to);
    for (std::size_t group = 0; group < index_.groups(); ++group) {
        index_.for_each_of_group((group + ahead) % index_.groups(), [&](std::uint32_t value) {
            if ((value & many_bit) == 0) fetch(&record(value));
        });
        move_group(group, to);
    }
    to.store.resize_down(to.end);
    to.store.give_back_spare();
    store_ = std::move(to.store);
    pages_begin_ = to.pages_begin;
    page_bytes_ = to.page_bytes;
    removed_words_ = 0;
}

bool FileTable::copy_to(FileTable& copy) const {
    const std::string_view root = dirs_.root();
    if (!copy.set_root(root)) return false;
    for (std::uint32_t file = first(); file != none; file = next(file)) {
        const std::uint32_t dir = copy.intern_dir(spelled_dir(file));
        if (copy.add(dir, spelled_name(file), is_installed(file)) == none) return false;
    }
    return true;
}

void FileTable::compact(std::unique_ptr<FileTable>& table) {
    constexpr std::size_t worthwhile_words = 16384;
    if (table->removed_words_ < worthwhile_words || table->removed_words_ < table->store_.size() / 8) return;
    std::unique_ptr<FileTable> copy(new (std::nothrow) FileTable);
    if (!copy || !table->copy_to(*copy)) return;
    copy->settle();
    table = std::move(copy);
}

}  // namespace fs
