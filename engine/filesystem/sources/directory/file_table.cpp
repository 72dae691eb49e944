#include "engine/filesystem/sources/directory/file_table.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "engine/filesystem/contract/normalize.h"
#include "engine/platform/memory.h"

// Words: a *record* is one file, with its name right behind it, so that a look-up reads one place. Files of one name form a
// *ring*; the index finds the ring by the hash of the name and points at its last file, whose next is the first. A name
// with more than a few files gets a tree over their directories, since asking each would make a look-up as slow as the
// number of files that share its name.
//
// A look-up costs what it waits for memory: once for the index and then for the record that it names. So a table that has
// been filled is *settled* (file_table_settle.cpp): each group of the index has a *page* of the store, found by the group's
// number alone, in which the records of its files lie. From then on both are fetched at once. A record that found no room
// on its page, or was added later, lies behind the pages, and a look-up for it waits twice.
//
// The invariant behind every answer: of the files that match, the one that was inserted first wins, which is the one that
// a walk through the bucket from its front would meet first. Records of one name lie in the store in that order: new ones
// go to its end, and settling moves a ring as a whole. So the least number tells the first.

namespace fs {

namespace {

// The number of files of one name up to which the ring is simply walked.
constexpr std::uint16_t few = 8;
constexpr std::uint16_t position_shift = 8;

bool is_suffix_of_other(std::string_view a, std::string_view b) {
    if (a.empty() || b.empty()) return a.empty() && b.empty();
    const std::size_t length = std::min(a.size(), b.size());
    return std::memcmp(a.data() + a.size() - length, b.data() + b.size() - length, length) == 0;
}

}  // namespace

std::uint32_t FileTable::bucket(std::string_view name) {
    std::uint32_t hash = 0x100001;
    for (const char c : name) hash = hash * 33 ^ static_cast<std::uint32_t>(static_cast<signed char>(c));
    return hash & 0xFFFF;
}

std::uint32_t FileTable::at_or_after(std::uint32_t order) const {
    const std::size_t end = by_order_.size();
    while (order < end && by_order_[order] == none) ++order;
    return order < end ? by_order_[order] : none;
}

std::string_view FileTable::spelled_name(std::uint32_t file) const {
    const Record& found = record(file);
    return {text_of(found) + (found.flags & spelled_flag ? found.length : 0), found.length};
}

void FileTable::set_installed(std::uint32_t file, bool on) {
    std::uint16_t& flags = record(file).flags;
    flags = static_cast<std::uint16_t>(on ? flags | installed_flag : flags & ~installed_flag);
}

// `dir_length` is that of the directory that will be compared, so that it can be fetched together with the name.
std::uint32_t* FileTable::find_name(std::string_view name, std::size_t dir_length) const {
    const std::uint64_t hash = hash_text(name.data(), name.size());
    index_.expect(hash);
    const unsigned char* const page = store_.data() + pages_begin_ + index_.first_group(hash) * page_bytes_;
    for (std::size_t at = 0; at < page_bytes_; at += cache_line) fetch(page + at);
    return index_.find(hash, [&](std::uint32_t value, std::uint32_t dir) {
        const Record& found = record(last_of(value));
        if (dir_length != 0) dirs_.expect(dir, dir_length);
        fetch(text_of(found) + name.size());
        return found.length == name.size() && std::memcmp(text_of(found), name.data(), name.size()) == 0;
    });
}

std::uint32_t FileTable::find_in_ring(std::uint32_t last, std::string_view dir) const {
    for (std::uint32_t file = record(last).next;; file = record(file).next) {
        if (is_suffix_of_other(dir, dirs_.compared(record(file).dir))) return file;
        if (file == last) return none;
    }
}

std::uint32_t FileTable::find_among_many(const ManyOfOneName& many, std::string_view dir) const {
    if (!many.tree_is_whole) return find_in_ring(many.last, dir);
    if (many.has_answers) {
        const std::uint32_t* slot = many.answer_index.find(hash_text(dir.data(), dir.size()),
                                                           [&](std::uint32_t answer, std::uint32_t dir_number) {
                                                               fetch(many.answers.data() + answer);
                                                               return dirs_.compared(dir_number) == dir;
                                                           });
        if (slot) return many.answers[*slot].file;
    }
    return many.tree.find(dir);
}

std::uint32_t FileTable::find(std::string_view dir, std::string_view name) const {
    const std::uint32_t* slot = find_name(name, dir.size());
    if (!slot) return none;
    if (dir.empty()) return record(last_of(*slot)).next;
    const ManyOfOneName* many = many_of(*slot);
    return many ? find_among_many(*many, dir) : find_in_ring(*slot, dir);
}

std::uint32_t FileTable::find_exact(std::string_view dir, std::string_view name) const {
    const std::uint32_t* slot = find_name(name, dir.size());
    if (!slot) return none;
    const std::uint32_t last = last_of(*slot);
    const ManyOfOneName* many = many_of(*slot);
    if (many && many->tree_is_whole && !dir.empty()) {
        const std::uint32_t file = many->tree.find_exact(dir);
        // A file of the empty directory is in the tree under the root's text; look on behind it.
        if (file == none || !dirs_.lower(record(file).dir).empty()) return file;
    }
    for (std::uint32_t file = record(last).next;; file = record(file).next) {
        if (dirs_.lower(record(file).dir) == dir) return file;
        if (file == last) return none;
    }
}

void FileTable::reserve(std::size_t files, std::size_t name_bytes) {
    constexpr std::size_t mean_padding = 2;
    const std::size_t bytes = files * (sizeof(Record) + mean_padding) + name_bytes;
    if (count_ != 0 || !by_order_.reserve(files) || !store_.reserve(bytes) || !index_.start_over(files)) return;
    platform::populate(store_.data(), bytes);
}

// Writes the record; it is in no ring yet.
std::uint32_t FileTable::store(std::uint32_t dir, std::string_view spelled_name, bool installed) {
    const std::size_t length = spelled_name.size();
    if (length > 0xFFFF || store_.size() / 4 >= many_bit - 0x10000) return none;
    const bool is_spelled =
        std::any_of(spelled_name.begin(), spelled_name.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    const int flags = (installed ? installed_flag : 0) | (is_spelled ? spelled_flag : 0);
    Record made{.next = none,
                .previous = none,
                .order = static_cast<std::uint32_t>(by_order_.size()),
                .dir = dir,
                .length = static_cast<std::uint16_t>(length),
                .flags = static_cast<std::uint16_t>(flags)};
    const auto file = static_cast<std::uint32_t>(store_.size() / 4);
    unsigned char* place = store_.extend(std::size_t{record_words(made)} * 4);
    if (!place) return none;
    if (!by_order_.push(file)) {
        store_.resize_down(std::size_t{file} * 4);
        return none;
    }
    std::memcpy(place, &made, sizeof made);
    char* text = reinterpret_cast<char*>(place) + sizeof made;
    std::copy(spelled_name.begin(), spelled_name.end(), text);
    if (!is_spelled) return file;
    std::copy(spelled_name.begin(), spelled_name.end(), text + length);
    fold_text(text, length);
    return file;
}

std::uint32_t FileTable::add(std::uint32_t dir, std::string_view spelled_name, bool installed) {
    if (dir == DirectoryNames::none || (index_.is_full() && !grow_index())) return none;
    const std::uint32_t file = store(dir, spelled_name, installed);
    if (file == none) return none;
    const std::string_view lower = name(file);
    if (std::uint32_t* slot = find_name(lower, 0)) {
        append(slot, file);
    } else {
        Record& made = record(file);
        made.next = made.previous = file;
        made.flags |= indexed_flag;
        index_.insert(hash_text(lower.data(), lower.size()), file, dir);
    }
    ++count_;
    return file;
}

void FileTable::append(std::uint32_t* slot, std::uint32_t file) {
    const std::uint32_t last = last_of(*slot);
    Record& made = record(file);
    Record& before = record(last);
    made.previous = last;
    made.next = before.next;
    record(before.next).previous = file;
    before.next = file;
    if (ManyOfOneName* many = many_of(*slot)) {
        many->last = file;
        add_to_tree(*many, file);
        return;
    }
    const int position = (before.flags >> position_shift) + 1;
    before.flags = static_cast<std::uint16_t>(before.flags & ~indexed_flag);
    made.flags = static_cast<std::uint16_t>(made.flags | indexed_flag | position << position_shift);
    *slot = file;
    if (position >= few) make_many(slot, file);
}

// Gives a name its tree. Without memory for it the ring is walked on, and the next file of the name tries again.
void FileTable::make_many(std::uint32_t* slot, std::uint32_t last) {
    record(last).flags = static_cast<std::uint16_t>((record(last).flags & 0xFF) | (few - 1) << position_shift);
    if (many_.size() == many_.capacity()) {
        try {
            many_.reserve(many_.size() * 2 + 8);
        } catch (const std::bad_alloc&) {
            return;
        }
    }
    std::unique_ptr<ManyOfOneName> many(new (std::nothrow) ManyOfOneName(dirs_.text()));
    if (!many) return;
    many->last = last;
    for (std::uint32_t file = record(last).next;; file = record(file).next) {
        add_to_tree(*many, file);
        if (file == last) break;
    }
    record(last).flags = static_cast<std::uint16_t>(record(last).flags & ~indexed_flag);
    *slot = many_bit | static_cast<std::uint32_t>(many_.size());
    many_.push_back(std::move(many));
}

void FileTable::add_to_tree(ManyOfOneName& many, std::uint32_t file) const {
    const std::uint32_t dir = record(file).dir;
    const std::size_t length = dirs_.compared(dir).size();
    if (!many.tree_is_whole || length == 0) return;  // an empty text matches no query that reaches the tree
    many.tree_is_whole = many.tree.insert(dirs_.compared_offset(dir), length, file);
    if (many.tree_is_whole && many.has_answers) remember_answer(many, file);
}

bool FileTable::grow_answers(ManyOfOneName& many) const {
    if (!many.answer_index.start_over(many.answers.size() * 2)) return false;
    for (std::uint32_t i = 0; i < many.answers.size(); ++i) {
        const std::string_view dir = dirs_.compared(many.answers[i].dir);
        many.answer_index.insert(hash_text(dir.data(), dir.size()), i, many.answers[i].dir);
    }
    return true;
}

void FileTable::remember_answer(ManyOfOneName& many, std::uint32_t file) const {
    const std::uint32_t number = record(file).dir;
    const std::string_view dir = dirs_.compared(number);
    const std::uint64_t hash = hash_text(dir.data(), dir.size());
    const auto is_same = [&](std::uint32_t, std::uint32_t other) { return dirs_.compared(other) == dir; };
    if (many.answer_index.find(hash, is_same)) return;
    const auto place = static_cast<std::uint32_t>(many.answers.size());
    many.has_answers =
        (!many.answer_index.is_full() || grow_answers(many)) && many.answers.push({number, many.tree.find(dir)});
    if (many.has_answers) many.answer_index.insert(hash, place, number);
}

std::uint32_t FileTable::next_of_same_dir(std::uint32_t file, std::uint32_t last) const {
    const std::string_view dir = dirs_.compared(record(file).dir);
    for (std::uint32_t other = file; other != last;) {
        other = record(other).next;
        if (dirs_.compared(record(other).dir) == dir) return other;
    }
    return none;
}

// Takes the file out of its ring and its tree.
void FileTable::unlink(std::uint32_t* slot, std::uint32_t file) {
    Record& gone = record(file);
    ManyOfOneName* many = many_of(*slot);
    const std::uint32_t last = last_of(*slot);
    if (many && many->tree_is_whole) {
        many->has_answers = false;
        const std::string_view dir = dirs_.compared(gone.dir);
        many->tree.remove(dir, file, many->tree.is_shared(dir) ? next_of_same_dir(file, last) : none);
    }
    record(gone.previous).next = gone.next;
    record(gone.next).previous = gone.previous;
    if (file != last) return;
    if (many) {
        many->last = gone.previous;
        return;
    }
    record(gone.previous).flags |= indexed_flag;
    *slot = gone.previous;
}

void FileTable::remove(std::uint32_t file) {
    std::uint32_t* slot = find_name(name(file), 0);
    if (record(file).next == file) {
        if ((*slot & many_bit) != 0) many_[*slot ^ many_bit].reset();
        index_.erase(slot);
    } else {
        unlink(slot, file);
    }
    by_order_[record(file).order] = none;
    removed_words_ += record_words(record(file));
    --count_;
}

// Puts ring ends into an index that is larger than the cache: the places of some are fetched before the first is written.
class FileTable::IndexFiller {
public:
    explicit IndexFiller(NameIndex& index) : index_(index) {}
    ~IndexFiller() { flush(); }
    IndexFiller(const IndexFiller&) = delete;
    IndexFiller& operator=(const IndexFiller&) = delete;

    void insert(std::string_view name, std::uint32_t value, std::uint32_t dir) {
        if (count_ == std::size(waiting_)) flush();
        waiting_[count_] = {hash_text(name.data(), name.size()), value, dir};
        index_.expect(waiting_[count_++].hash);
    }

private:
    void flush() {
        for (std::size_t i = 0; i < count_; ++i) index_.insert(waiting_[i].hash, waiting_[i].value, waiting_[i].dir);
        count_ = 0;
    }

    struct Waiting {
        std::uint64_t hash;
        std::uint32_t value;
        std::uint32_t dir;
    };
    NameIndex& index_;
    Waiting waiting_[32];
    std::size_t count_ = 0;
};

bool FileTable::grow_index() {
    if (!index_.start_over(index_.size() * 2)) return false;
    page_bytes_ = 0;
    IndexFiller filler(index_);
    for (std::uint32_t file = first(); file != none; file = next(file)) {
        if ((record(file).flags & indexed_flag) != 0) filler.insert(name(file), file, record(file).dir);
    }
    for (std::uint32_t i = 0; i < many_.size(); ++i) {
        if (many_[i]) filler.insert(name(many_[i]->last), many_bit | i, 0);
    }
    return true;
}

std::size_t FileTable::bytes() const {
    std::size_t sum =
        dirs_.bytes() + store_.bytes() + by_order_.bytes() + index_.bytes() + many_.capacity() * sizeof(void*);
    for (const auto& many : many_) {
        if (many)
            sum += sizeof(ManyOfOneName) + many->tree.bytes() + many->answers.bytes() + many->answer_index.bytes();
    }
    return sum;
}

}  // namespace fs
