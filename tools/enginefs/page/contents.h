#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "tree.h"

/// A file that a pack or a directory has, shown or not.
struct ContainedFile {
    static constexpr std::size_t nobody = ~std::size_t{0};

    std::string name;  // as its place spells it
    std::string key;   // by which the library finds it
    std::size_t place = 0;
    std::uint64_t size = 0;
    std::uint64_t packed = 0;  // bytes that it takes there
    std::uint32_t method = EFSPackMethod::STORE;
    std::uint32_t crc = 0;        // of an entry
    std::size_t winner = nobody;  // the file that is read by this name, perhaps itself; nobody: mounts do not show it
};

/// Files of equal content.
struct EqualFiles {
    std::vector<std::size_t> files;
    std::uint64_t wasted = 0;  // bytes that all but the smallest of them take
};

/// What packs and directories hold, in the order in which they are asked.
class Contents {
public:
    struct Place {
        std::string name;
        Tree tree{};
    };

    /// False, with a word on standard error, when it cannot be looked into.
    bool add(const std::string& path);
    /// When all places are there: who is read by each name.
    void find_winners();
    /// Takes the names of an access record.
    bool read_record(const std::string& path);
    /// By size and checksum, and by their bytes too when `exact`, the most wasteful first.
    std::vector<EqualFiles> equal_files(bool exact);

    const std::deque<Place>& places() const { return places_; }
    const std::vector<ContainedFile>& files() const { return files_; }
    /// The files of the record, each once, in its order; and how many of its names no file has.
    const std::vector<std::size_t>& record() const { return record_; }
    std::size_t unknown_names() const { return unknown_names_; }
    /// Whether everything could be listed and read; what could not was said.
    bool is_whole() const { return is_whole_; }

private:
    void add_entries(const Tree& tree);
    void add_disk_files(const Tree& tree);
    bool can_be_read(std::size_t i) const;
    bool same_content(std::size_t a, std::size_t b) const;

    std::deque<Place> places_;
    std::vector<ContainedFile> files_;
    std::unordered_map<std::string, std::size_t> winners_;
    std::vector<std::size_t> record_;
    std::size_t unknown_names_ = 0;
    bool is_whole_ = true;
};
