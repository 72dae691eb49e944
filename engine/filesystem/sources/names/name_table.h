#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/names/hash_index.h"
#include "engine/filesystem/sources/names/suffix_tree.h"

namespace fs {

/// The directories of a table, each kept once: in lower case and as the disk spells it. A directory's number is where it
/// stands in the store, so that a lookup reads nothing but the directory itself.
class DirectoryTexts {
public:
    /// `root` is what the empty directory is compared as.
    explicit DirectoryTexts(std::string_view root) { store(root); }

    /// The number of a directory ("" or ending in "/"), added when it is new. May throw std::bad_alloc, or
    /// std::length_error when it or all of them together are longer than numbers reach.
    std::uint32_t intern(std::string_view spelled);

    std::string_view lower(std::uint32_t dir) const { return {text(dir), head(dir).length}; }
    std::string_view spelled(std::uint32_t dir) const {
        const Head found = head(dir);
        return {text(dir) + (found.is_spelled ? found.length : 0), found.length};
    }
    /// Calls `visit(dir)` for every directory that was ever interned.
    template <class Visit>
    void for_each(Visit visit) const {
        for (std::uint32_t dir = after(root_dir); dir < store_.size(); dir = after(dir)) visit(dir);
    }
    std::string_view root() const { return lower(root_dir); }
    /// What lookups compare: the directory's own text, or the root's when that is empty.
    std::string_view compared(std::uint32_t dir) const { return head(dir).length != 0 ? lower(dir) : root(); }
    /// Where that text begins among `characters`.
    std::uint32_t compared_offset(std::uint32_t dir) const {
        return (head(dir).length != 0 ? dir : root_dir) + std::uint32_t{sizeof(Head)};
    }
    /// Where the offsets count from; good until the next intern.
    const char* characters() const { return store_.data(); }

    std::size_t bytes() const { return store_.capacity() + index_.bytes(); }

private:
    struct Head {  // the lower-case text follows, and the disk's spelling when it differs
        std::uint16_t length;
        std::uint16_t is_spelled;
    };
    static constexpr std::uint32_t root_dir = 0;

    Head head(std::uint32_t dir) const {
        Head found;
        std::memcpy(&found, store_.data() + dir, sizeof found);
        return found;
    }
    std::uint32_t after(std::uint32_t dir) const {
        const Head found = head(dir);
        return dir + std::uint32_t{sizeof found} + found.length * (found.is_spelled ? 2u : 1u);
    }
    const char* text(std::uint32_t dir) const { return store_.data() + dir + sizeof(Head); }
    std::uint32_t store(std::string_view spelled);

    std::vector<char> store_;
    HashIndex index_;  // by the spelling
};

/// The files of a source by name. A lookup takes the file name as a whole and the directory by its end: directories match
/// when one is a suffix of the other, an empty one in the question takes any. Of the files that match, the one added first
/// answers.
///
/// A file is known by a number that grows in the order of adding and stays good until compact().
/// Fails    what adds may throw std::bad_alloc, or std::length_error beyond what numbers reach; it then changes nothing.
/// Threads  any number of readers, or one thread that changes it.
class NameTable {
public:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    /// `root` is what a file in the empty directory is compared as; empty: such a file matches no directory.
    explicit NameTable(std::string_view root = {}) : dirs_(root) {}

    /// The number of a directory as the disk spells it ("" or ending in "/").
    std::uint32_t intern_dir(std::string_view spelled) { return dirs_.intern(spelled); }
    /// Adds a file and returns its number. `value` is the caller's own.
    std::uint32_t add(std::uint32_t dir, std::string_view spelled_name, std::uint32_t value);
    /// Makes room for so many more files whose names have so many bytes.
    void reserve(std::size_t files, std::size_t name_bytes);
    void remove(std::uint32_t file) noexcept;
    /// Gives back the room of removed files once they are many; numbers change. Without memory nothing happens.
    void compact() noexcept;

    /// The first file of this name whose directory matches. Both texts are lower case; so below.
    std::uint32_t find(std::string_view dir, std::string_view name) const;
    /// The first file of exactly this directory and name.
    std::uint32_t find_exact(std::string_view dir, std::string_view name) const;
    std::uint32_t find_exact(std::string_view path) const {
        const std::size_t split = path.rfind('/') + 1;
        return find_exact(path.substr(0, split), path.substr(split));
    }
    /// The next file of the same directory and name, whose spelling is another; or none.
    std::uint32_t next_exact(std::uint32_t file) const;

    std::string_view name(std::uint32_t file) const { return {text(file), record(file).length}; }
    std::string_view spelled_name(std::uint32_t file) const {
        return {text(file) + (record(file).is_spelled ? record(file).length : 0), record(file).length};
    }
    std::uint32_t dir_number(std::uint32_t file) const { return record(file).dir; }
    std::string_view dir_text(std::uint32_t dir) const { return dirs_.lower(dir); }
    /// Calls `visit(spelled)` for every directory that has a number, whether it has files or not.
    template <class Visit>
    void for_each_dir(Visit visit) const {
        dirs_.for_each([&](std::uint32_t dir) { visit(dirs_.spelled(dir)); });
    }
    std::string_view dir(std::uint32_t file) const { return dirs_.lower(record(file).dir); }
    std::string_view spelled_dir(std::uint32_t file) const { return dirs_.spelled(record(file).dir); }
    std::string path(std::uint32_t file) const { return std::string(dir(file)).append(name(file)); }
    std::string spelled_path(std::uint32_t file) const {
        return std::string(spelled_dir(file)).append(spelled_name(file));
    }
    bool is_spelled(std::uint32_t file, std::string_view path) const {
        return path.size() == dir(file).size() + name(file).size() && path.starts_with(spelled_dir(file)) &&
               path.ends_with(spelled_name(file));
    }
    /// Whether one of the files of exactly this path in lower case is spelled like this.
    bool holds_spelled(std::string_view lower, std::string_view spelled) const {
        std::uint32_t file = find_exact(lower);
        while (file != none && !is_spelled(file, spelled)) file = next_exact(file);
        return file != none;
    }
    std::uint32_t value(std::uint32_t file) const { return record(file).value; }
    void set_value(std::uint32_t file, std::uint32_t value) { record(file).value = value; }

    /// All files in the order of adding: `for (file = first(); file != none; file = next(file))`.
    std::uint32_t first() const { return at_or_after(0); }
    std::uint32_t next(std::uint32_t file) const { return at_or_after(file + words_of(record(file))); }
    std::uint32_t size() const { return count_; }
    /// The next file of the same name, or none.
    std::uint32_t next_of_name(std::uint32_t file) const { return record(file).next > file ? record(file).next : none; }
    /// Memory held, in bytes.
    std::size_t bytes() const;

private:
    struct Record {          // the name follows, and the disk's spelling of it when it differs
        std::uint32_t next;  // files of one name form a ring in the order of adding
        std::uint32_t previous;
        std::uint32_t dir;
        std::uint32_t value;
        std::uint16_t length;
        bool is_spelled;
        bool is_removed;
    };
    struct Crowd {  // the files of a name that has many
        std::uint32_t last = none;
        SuffixTree tree;
    };
    static constexpr std::uint32_t crowd_bit = 0x80000000u;

    Record& record(std::uint32_t file) { return *reinterpret_cast<Record*>(words_.data() + file); }
    const Record& record(std::uint32_t file) const { return *reinterpret_cast<const Record*>(words_.data() + file); }
    const char* text(std::uint32_t file) const { return reinterpret_cast<const char*>(&record(file) + 1); }
    static std::uint32_t words_of(const Record& record);
    std::uint32_t at_or_after(std::uint32_t file) const;

    // What a value of the index stands for.
    Crowd* crowd_of(std::uint32_t value) const {
        return (value & crowd_bit) != 0 ? crowds_[value ^ crowd_bit].get() : nullptr;
    }
    std::uint32_t last_of(std::uint32_t value) const {
        const Crowd* const crowd = crowd_of(value);
        return crowd ? crowd->last : value;
    }
    /// The first file of the ring that ends in `last` for which `matches(file)` is true.
    template <class Matches>
    std::uint32_t first_in_ring(std::uint32_t last, Matches matches) const {
        for (std::uint32_t file = record(last).next;; file = record(file).next) {
            if (matches(file)) return file;
            if (file == last) return none;
        }
    }
    std::string_view compared_dir(std::uint32_t file) const { return dirs_.compared(record(file).dir); }
    std::size_t find_slot(std::uint64_t hash, std::string_view name) const;
    std::uint32_t store(std::uint32_t dir, std::string_view spelled_name, std::uint32_t value);
    void join(std::size_t slot, std::uint32_t file);
    void make_crowd(std::size_t slot, std::uint32_t last);
    void add_to_tree(Crowd& crowd, std::uint32_t file) const;
    void leave(std::size_t slot, std::uint32_t file) noexcept;
    std::uint32_t next_of_same_dir(std::uint32_t file, std::uint32_t last) const;

    DirectoryTexts dirs_;
    std::vector<std::uint32_t> words_;  // records one after the other; a file's number is its place
    HashIndex index_;                   // by name: the last file of the ring, or crowd_bit and an index into crowds_
    std::vector<std::unique_ptr<Crowd>> crowds_;
    std::uint32_t count_ = 0;
    std::size_t removed_words_ = 0;
};

}  // namespace fs
