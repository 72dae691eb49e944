#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/directory/file_table_array.h"
#include "engine/filesystem/sources/directory/file_table_directories.h"
#include "engine/filesystem/sources/directory/name_index.h"
#include "engine/filesystem/sources/directory/name_index_suffixes.h"

namespace fs {

/// The files of a directory source. Answers are those of 65,536 buckets of files chosen by a hash of the name, each in
/// the order of insertion, searched from the front; how they are found is another matter (see file_table.cpp).
///
/// A file is known by a number that stays good until the next change of the table. Among files of one name it grows in
/// the order of insertion.
/// Threads  any number of readers, or one thread that changes it.
class FileTable {
public:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    FileTable() = default;
    FileTable(const FileTable&) = delete;
    FileTable& operator=(const FileTable&) = delete;

    /// What a file in the empty directory is compared as; called before the first add.
    [[nodiscard]] bool set_root(std::string_view root) { return dirs_.set_root(root); }

    /// The number of a directory as the disk spells it ("" or ending in "/"); none when memory cannot be had.
    std::uint32_t intern_dir(std::string_view spelled) { return dirs_.intern(spelled); }
    std::string_view dir_text(std::uint32_t dir) const { return dirs_.lower(dir); }
    /// Appends a file. Its number, or none when memory cannot be had.
    std::uint32_t add(std::uint32_t dir, std::string_view spelled_name, bool installed);
    /// Tells of a lower-case name that will soon be added; adding many in a row then waits less for memory.
    void expect(std::string_view name) const { index_.expect(hash_text(name.data(), name.size())); }
    /// Makes room in an empty table for so many files whose names have so many bytes. Without memory for that the table
    /// grows as it fills.
    void reserve(std::size_t files, std::size_t name_bytes);
    void remove(std::uint32_t file);
    /// Moves files to where a look-up finds them before it has read the index, so that it waits for memory once instead of
    /// twice. Changes numbers and no answer; worth its while after many were added. Without memory all stays as it is.
    void settle();
    /// Gives back the room of removed files once they are the greater part; `table` is replaced, numbers change.
    static void compact(std::unique_ptr<FileTable>& table);

    /// The first file of this name whose directory matches: it, or the query, is a suffix of the other; an empty query
    /// takes the first of all. Both texts are lower case.
    std::uint32_t find(std::string_view dir, std::string_view name) const;
    /// The first file of exactly this directory and name.
    std::uint32_t find_exact(std::string_view dir, std::string_view name) const;

    std::string_view name(std::uint32_t file) const { return {text_of(record(file)), record(file).length}; }
    std::string_view spelled_name(std::uint32_t file) const;
    std::uint32_t dir_number(std::uint32_t file) const { return record(file).dir; }
    std::string_view dir(std::uint32_t file) const { return dirs_.lower(record(file).dir); }
    std::string_view spelled_dir(std::uint32_t file) const { return dirs_.spelled(record(file).dir); }
    bool is_installed(std::uint32_t file) const { return (record(file).flags & installed_flag) != 0; }
    void set_installed(std::uint32_t file, bool on);

    /// All files in the order of insertion: `for (file = first(); file != none; file = next(file))`.
    std::uint32_t first() const { return at_or_after(0); }
    std::uint32_t next(std::uint32_t file) const { return at_or_after(record(file).order + 1); }
    /// Where in that order the file stands, and the file that stands there.
    std::uint32_t order(std::uint32_t file) const { return record(file).order; }
    std::uint32_t at(std::uint32_t order) const { return by_order_[order]; }
    std::uint32_t size() const { return count_; }
    /// The next file of the same name, or none.
    std::uint32_t next_of_name(std::uint32_t file) const { return record(file).next > file ? record(file).next : none; }
    /// The bucket that the table's order is told by.
    static std::uint32_t bucket(std::string_view name);
    /// Memory held, in bytes.
    std::size_t bytes() const;

private:
    struct Record {          // the name follows, and the disk's spelling of it when it differs
        std::uint32_t next;  // files of the same name form a ring in the order of insertion
        std::uint32_t previous;
        std::uint32_t order;  // among all files; its place in by_order_
        std::uint32_t dir;
        std::uint16_t length;
        std::uint16_t flags;
    };
    struct ManyOfOneName {
        explicit ManyOfOneName(const PodArray<char>& text) : tree(text) {}
        std::uint32_t last = none;
        bool tree_is_whole = true;  // false when memory ran out: then the ring is searched
        SuffixTree tree;
        // What the tree answers for each directory that it holds. Later files change no answer; a removal may change any,
        // and ends the use of this.
        struct Answer {
            std::uint32_t dir;
            std::uint32_t file;
        };
        bool has_answers = true;
        PodArray<Answer> answers;
        NameIndex answer_index;  // by the text of the directory
    };

    struct Settled {  // a store in the making
        PodArray<unsigned char> store;
        std::size_t pages_begin = 0;
        std::size_t page_bytes = 0;
        std::size_t end = 0;  // of what is used
    };

    static constexpr std::size_t cache_line = 64;
    static constexpr std::uint16_t installed_flag = 1;
    static constexpr std::uint16_t spelled_flag = 2;
    static constexpr std::uint16_t indexed_flag = 4;  // the index points at this one: the last of its ring
    static constexpr std::uint32_t many_bit = 0x80000000u;

    Record& record(std::uint32_t file) { return *reinterpret_cast<Record*>(store_.data() + std::size_t{file} * 4); }
    const Record& record(std::uint32_t file) const {
        return *reinterpret_cast<const Record*>(store_.data() + std::size_t{file} * 4);
    }
    static const char* text_of(const Record& file) { return reinterpret_cast<const char*>(&file + 1); }
    static std::uint32_t record_words(const Record& file) {
        const std::uint32_t text = file.flags & spelled_flag ? file.length * 2u : file.length;
        return static_cast<std::uint32_t>(sizeof(Record) / 4) + (text + 3) / 4;
    }
    std::uint32_t at_or_after(std::uint32_t order) const;
    // What a value of the index stands for.
    ManyOfOneName* many_of(std::uint32_t value) const {
        return value & many_bit ? many_[value ^ many_bit].get() : nullptr;
    }
    std::uint32_t last_of(std::uint32_t value) const {
        return value & many_bit ? many_[value ^ many_bit]->last : value;
    }
    std::uint32_t* find_name(std::string_view name, std::size_t dir_length) const;
    std::uint32_t find_among_many(const ManyOfOneName& many, std::string_view dir) const;
    void remember_answer(ManyOfOneName& many, std::uint32_t file) const;
    bool grow_answers(ManyOfOneName& many) const;
    std::uint32_t find_in_ring(std::uint32_t last, std::string_view dir) const;
    std::uint32_t store(std::uint32_t dir, std::string_view spelled_name, bool installed);
    void append(std::uint32_t* slot, std::uint32_t file);
    void make_many(std::uint32_t* slot, std::uint32_t last);
    void add_to_tree(ManyOfOneName& many, std::uint32_t file) const;
    std::uint32_t next_of_same_dir(std::uint32_t file, std::uint32_t last) const;
    void unlink(std::uint32_t* slot, std::uint32_t file);
    class IndexFiller;
    bool grow_index();
    std::size_t ring_bytes(std::uint32_t last) const;
    bool prepare(Settled& to) const;
    std::uint32_t move_ring(std::uint32_t last, Settled& to, std::size_t offset);
    std::uint32_t move_ring_to_end(std::uint32_t last, Settled& to);
    void move_many(Settled& to);
    void move_group(std::size_t group, Settled& to);
    bool copy_to(FileTable& copy) const;

    DirectoryNames dirs_;
    PodArray<unsigned char> store_;     // records one after the other; a file's number is its place in words of 4 bytes
    PodArray<std::uint32_t> by_order_;  // files in the order of insertion; none for a removed one
    NameIndex index_;                   // by name: the last file of the ring, or many_bit and an index into many_
    std::size_t pages_begin_ = 0;       // offset into store_
    std::size_t page_bytes_ = 0;        // 0 unless the table is settled
    std::vector<std::unique_ptr<ManyOfOneName>> many_;
    std::uint32_t count_ = 0;
    std::size_t removed_words_ = 0;
};

}  // namespace fs
