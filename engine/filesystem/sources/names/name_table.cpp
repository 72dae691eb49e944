#include "engine/filesystem/sources/names/name_table.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "engine/kernel/text.h"

// Words: a *record* is one file, with its name right behind it, so that a lookup reads one place. Files of one name form a
// *ring*; the index finds the ring by the hash of the name and points at its last file, whose next is the first. A name with
// more than a few files is a *crowd* and gets a tree over their directories, since asking each would make a lookup as slow
// as the number of files that share its name.
//
// The invariant behind every answer: records of one name lie in the store in the order of adding, so that the least number
// tells the first.

namespace fs {

namespace {

constexpr int few = 8;  // files of one name that are simply walked

bool is_suffix_of_other(std::string_view a, std::string_view b) {
    if (a.empty() || b.empty()) return false;
    const std::size_t length = std::min(a.size(), b.size());
    return std::memcmp(a.data() + a.size() - length, b.data() + b.size() - length, length) == 0;
}

}  // namespace

std::uint32_t DirectoryTexts::intern(std::string_view wanted) {
    const std::uint64_t hash = kernel::hash_text(wanted);
    const std::size_t found = index_.find(hash, [&](std::uint32_t dir) { return spelled(dir) == wanted; });
    if (found != HashIndex::npos) return index_.value(found);
    index_.make_room();
    const std::uint32_t dir = store(wanted);
    index_.insert(hash, dir);
    return dir;
}

std::uint32_t DirectoryTexts::store(std::string_view spelled) {
    const std::size_t length = spelled.size();
    if (length > 0xFFFF || store_.size() > 0xFFFF0000u - 2 * 0x10000) throw std::length_error("directory");
    const bool is_spelled = platform::has_upper_case(spelled.data(), length);
    const Head head{static_cast<std::uint16_t>(length), is_spelled};
    const std::size_t dir = store_.size();
    store_.resize(dir + sizeof head + (is_spelled ? length * 2 : length));
    char* out = store_.data() + dir;
    std::memcpy(out, &head, sizeof head);
    out = std::transform(spelled.begin(), spelled.end(), out + sizeof head, kernel::fold);
    if (is_spelled) spelled.copy(out, length);
    return static_cast<std::uint32_t>(dir);
}

std::uint32_t NameTable::words_of(const Record& record) {
    const std::uint32_t text = record.is_spelled ? record.length * 2u : record.length;
    return static_cast<std::uint32_t>(sizeof(Record) / sizeof(std::uint32_t)) + (text + 3) / 4;
}

std::uint32_t NameTable::at_or_after(std::uint32_t file) const {
    while (file < words_.size() && record(file).is_removed) file += words_of(record(file));
    return file < words_.size() ? file : none;
}

std::size_t NameTable::find_slot(std::uint64_t hash, std::string_view name) const {
    return index_.find(hash, [&](std::uint32_t value) { return this->name(last_of(value)) == name; });
}

std::uint32_t NameTable::find(std::string_view dir, std::string_view name) const {
    const std::size_t slot = find_slot(kernel::hash_text(name), name);
    if (slot == HashIndex::npos) return none;
    const std::uint32_t last = last_of(index_.value(slot));
    if (dir.empty()) return record(last).next;
    if (const Crowd* const crowd = crowd_of(index_.value(slot))) return crowd->tree.find(dirs_.characters(), dir);
    return first_in_ring(last, [&](std::uint32_t file) { return is_suffix_of_other(dir, compared_dir(file)); });
}

std::uint32_t NameTable::find_exact(std::string_view dir, std::string_view name) const {
    const std::size_t slot = find_slot(kernel::hash_text(name), name);
    if (slot == HashIndex::npos) return none;
    if (dir.empty()) dir = dirs_.root();
    if (const Crowd* const crowd = crowd_of(index_.value(slot))) return crowd->tree.find_exact(dirs_.characters(), dir);
    return first_in_ring(last_of(index_.value(slot)), [&](std::uint32_t file) { return compared_dir(file) == dir; });
}

std::uint32_t NameTable::next_exact(std::uint32_t file) const {
    const std::uint32_t value = index_.value(find_slot(kernel::hash_text(name(file)), name(file)));
    const Crowd* const crowd = crowd_of(value);
    if (crowd && !crowd->tree.is_shared(dirs_.characters(), compared_dir(file))) return none;
    return next_of_same_dir(file, last_of(value));
}

void NameTable::reserve(std::size_t files, std::size_t name_bytes) {
    constexpr std::size_t mean_padding = 2;
    index_.reserve(count_ + files);
    words_.reserve(words_.size() + (files * (sizeof(Record) + mean_padding) + name_bytes) / sizeof(std::uint32_t));
}

std::uint32_t NameTable::add(std::uint32_t dir, std::string_view spelled_name, std::uint32_t value) {
    index_.make_room();
    const std::uint32_t file = store(dir, spelled_name, value);
    const std::uint64_t hash = kernel::hash_text(name(file));
    const std::size_t slot = find_slot(hash, name(file));
    if (slot == HashIndex::npos) {
        record(file).next = record(file).previous = file;
        index_.insert(hash, file);
    } else {
        try {
            join(slot, file);
        } catch (...) {
            words_.resize(file);
            throw;
        }
    }
    ++count_;
    return file;
}

// Writes the record; it is in no ring yet.
std::uint32_t NameTable::store(std::uint32_t dir, std::string_view spelled_name, std::uint32_t value) {
    const std::size_t length = spelled_name.size();
    if (length > 0xFFFF || words_.size() >= crowd_bit - 0x10000) throw std::length_error("name");
    const Record made{.next = none,
                      .previous = none,
                      .dir = dir,
                      .value = value,
                      .length = static_cast<std::uint16_t>(length),
                      .is_spelled = platform::has_upper_case(spelled_name.data(), length),
                      .is_removed = false};
    const auto file = static_cast<std::uint32_t>(words_.size());
    words_.resize(file + std::size_t{words_of(made)});
    std::memcpy(words_.data() + file, &made, sizeof made);
    char* out = reinterpret_cast<char*>(&record(file) + 1);
    out = std::transform(spelled_name.begin(), spelled_name.end(), out, kernel::fold);
    if (made.is_spelled) spelled_name.copy(out, length);
    return file;
}

// Puts a stored file at the end of the ring of its name.
void NameTable::join(std::size_t slot, std::uint32_t file) {
    const std::uint32_t last = last_of(index_.value(slot));
    int files = 0;
    if (crowd_of(index_.value(slot)) == nullptr) first_in_ring(last, [&](std::uint32_t) { return ++files == few; });
    if (files == few) make_crowd(slot, last);
    if (Crowd* const crowd = crowd_of(index_.value(slot))) {
        add_to_tree(*crowd, file);
        crowd->last = file;
    } else {
        index_.set(slot, file);
    }
    record(file).previous = last;
    record(file).next = record(last).next;
    record(record(last).next).previous = file;
    record(last).next = file;
}

void NameTable::make_crowd(std::size_t slot, std::uint32_t last) {
    auto crowd = std::make_unique<Crowd>();
    crowd->last = last;
    first_in_ring(last, [&](std::uint32_t file) { return add_to_tree(*crowd, file), false; });
    crowds_.push_back(std::move(crowd));
    index_.set(slot, crowd_bit | static_cast<std::uint32_t>(crowds_.size() - 1));
}

void NameTable::add_to_tree(Crowd& crowd, std::uint32_t file) const {
    const std::uint32_t dir = record(file).dir;
    crowd.tree.insert(dirs_.characters(), dirs_.compared_offset(dir), dirs_.compared(dir).size(), file);
}

std::uint32_t NameTable::next_of_same_dir(std::uint32_t file, std::uint32_t last) const {
    const std::string_view dir = compared_dir(file);
    while (file != last) {
        file = record(file).next;
        if (compared_dir(file) == dir) return file;
    }
    return none;
}

void NameTable::remove(std::uint32_t file) noexcept {
    const std::size_t slot = find_slot(kernel::hash_text(name(file)), name(file));
    const std::uint32_t value = index_.value(slot);
    if (record(file).next != file) {
        leave(slot, file);
    } else {
        if (crowd_of(value) != nullptr) crowds_[value ^ crowd_bit].reset();
        index_.erase(slot);
    }
    record(file).is_removed = true;
    removed_words_ += words_of(record(file));
    --count_;
}

// Takes a file out of a ring of several.
void NameTable::leave(std::size_t slot, std::uint32_t file) noexcept {
    const Record& gone = record(file);
    const std::uint32_t last = last_of(index_.value(slot));
    record(gone.previous).next = gone.next;
    record(gone.next).previous = gone.previous;
    Crowd* const crowd = crowd_of(index_.value(slot));
    if (crowd != nullptr)
        crowd->tree.remove(dirs_.characters(), compared_dir(file), file, [&] { return next_of_same_dir(file, last); });
    if (file != last) return;
    if (crowd != nullptr)
        crowd->last = gone.previous;
    else
        index_.set(slot, gone.previous);
}

void NameTable::compact() noexcept {
    constexpr std::size_t worthwhile_words = 16384;
    if (removed_words_ < worthwhile_words || removed_words_ < words_.size() / 2) return;
    try {
        NameTable copy(dirs_.root());
        copy.index_.reserve(count_);
        copy.words_.reserve(words_.size() - removed_words_);
        for (std::uint32_t file = first(); file != none; file = next(file)) {
            copy.add(copy.intern_dir(spelled_dir(file)), spelled_name(file), value(file));
        }
        *this = std::move(copy);
    } catch (const std::bad_alloc&) {  // the room is given back another time
    }
}

std::size_t NameTable::bytes() const {
    std::size_t sum = dirs_.bytes() + words_.capacity() * sizeof(words_[0]) + index_.bytes() +
                      crowds_.capacity() * sizeof(crowds_[0]);
    for (const auto& crowd : crowds_) sum += crowd ? sizeof(Crowd) + crowd->tree.bytes() : 0;
    return sum;
}

}  // namespace fs
