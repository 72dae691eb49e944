#include "engine/filesystem/sources/pack/directory.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/refusal.h"
#include "engine/filesystem/sources/pack/walk.h"
#include "engine/kernel/bytes.h"
#include "engine/kernel/text.h"

namespace fs {

namespace {

/// Gives each directory one number, in the order of their first appearance.
class DirectoryNumbers {
public:
    DirectoryNumbers() : slots_(1024, 0) {}

    std::uint16_t number_of(std::string_view dir) {
        if (dir.empty()) return 0;
        const auto hash = static_cast<std::uint32_t>(kernel::hash_text(dir));
        if (last_ != 0 && is(last_, hash, dir)) return last_;
        std::size_t slot = hash & (slots_.size() - 1);
        while (slots_[slot] != 0 && !is(slots_[slot], hash, dir)) slot = (slot + 1) & (slots_.size() - 1);
        const bool is_new = slots_[slot] == 0;
        if (is_new) slots_[slot] = append(hash, dir);
        last_ = slots_[slot];
        if (is_new && places_.size() * 2 > slots_.size()) grow();
        return last_;
    }

    void release(PackDirectory& out) {
        out.dir_text = std::move(text_);
        out.dirs.reserve(places_.size() + 1);
        out.dirs.emplace_back();
        for (const Place& place : places_) out.dirs.emplace_back(out.dir_text.data() + place.offset, place.length);
    }

private:
    struct Place {
        std::uint32_t offset;
        std::uint32_t length;
        std::uint32_t hash;
    };

    bool is(std::uint16_t number, std::uint32_t hash, std::string_view dir) const {
        const Place& place = places_[number - 1u];
        return place.hash == hash && std::string_view(text_.data() + place.offset, place.length) == dir;
    }

    std::uint16_t append(std::uint32_t hash, std::string_view dir) {
        places_.push_back({static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(dir.size()), hash});
        text_.insert(text_.end(), dir.begin(), dir.end());
        return static_cast<std::uint16_t>(places_.size());  // at most one directory for each of 65,535 entries
    }

    void grow() {
        std::vector<std::uint16_t> slots(slots_.size() * 4, 0);
        for (std::size_t number = 1; number <= places_.size(); ++number) {
            std::size_t slot = places_[number - 1].hash & (slots.size() - 1);
            while (slots[slot] != 0) slot = (slot + 1) & (slots.size() - 1);
            slots[slot] = static_cast<std::uint16_t>(number);
        }
        slots_ = std::move(slots);
    }

    std::vector<Place> places_;
    std::vector<std::uint16_t> slots_;  // numbers; 0 is an empty slot
    std::vector<char> text_;
    std::uint16_t last_ = 0;  // neighbours in a pack mostly share their directory
};

/// Directories, and what lies in a directory whose name begins with "#", are not files of the pack.
bool is_visible(std::string_view name) {
    return (name.empty() || name.back() != '/') && name.find("/#") == std::string_view::npos;
}

// Eight bytes of a name are looked at as one number, each answering in its highest bit.

constexpr std::uint64_t every(std::uint8_t byte) { return std::uint64_t{byte} * 0x0101010101010101u; }

/// The bytes that a name in normal form has none of: upper case and "\\" ("[" lies between them), ":", and what is no
/// text. Bytes of 0x80 and more are like small letters.
std::uint64_t odd_bytes(std::uint64_t word) {
    const std::uint64_t low = word & every(0x7F);
    const std::uint64_t control = ~(low + every(0x80 - 0x20));
    const std::uint64_t capital = (low + every(0x80 - 'A')) & ~(low + every(0x7F - '\\'));
    const std::uint64_t colon = ~((low ^ every(':')) + every(0x7F));
    return (control | capital | colon) & ~word & every(0x80);
}

std::uint64_t slash_bytes(std::uint64_t word) {
    return ~(((word & every(0x7F)) ^ every('/')) + every(0x7F)) & ~word & every(0x80);
}

bool needs_closer_look(std::uint8_t first_of_component) {
    return first_of_component == '.' || first_of_component == '#' || first_of_component == '/';
}

/// The bytes of a name from `at` on, up to eight, and small letters behind its end.
std::uint64_t load_word(const std::uint8_t* name, std::uint32_t length, std::uint32_t at) {
    const std::uint32_t rest = length - at;
    if (rest >= 8) return kernel::load_u64(name + at);
    std::uint64_t word = 0;
    if (length >= 8) {
        word = kernel::load_u64(name + length - 8) >> 8 * (8 - rest);
    } else {
        for (std::uint32_t i = 0; i < rest; ++i) word |= std::uint64_t{name[i]} << 8 * i;
    }
    return word | every('x') << 8 * rest;
}

/// Whether a name, as most do, stands in normal form and is visible; `split` is then just past its last "/". Says no to
/// whatever needs a closer look: odd bytes, and a first byte, or one behind a "/", that is ".", "#" or "/".
bool is_plain(const std::uint8_t* name, std::uint32_t length, std::uint32_t& split) {
    split = 0;
    if (length == 0 || needs_closer_look(name[0])) return false;
    for (std::uint32_t at = 0; at < length; at += 8) {
        const std::uint64_t word = load_word(name, length, at);
        if (odd_bytes(word) != 0) return false;
        for (std::uint64_t slashes = slash_bytes(word); slashes != 0; slashes &= slashes - 1) {
            split = at + static_cast<std::uint32_t>(std::countr_zero(slashes)) / 8 + 1;
            if (split == length || needs_closer_look(name[split])) return false;
        }
    }
    return true;
}

/// Takes the entries one by one.
class Entries {
public:
    explicit Entries(PackDirectory& out) : out_(out) {}

    /// Takes what a header tells beside the name. False when offsets would no longer fit into 32 bits.
    bool add(PackRecord record, std::string_view raw) {
        std::uint32_t split = 0;
        if (is_plain(reinterpret_cast<const std::uint8_t*>(raw.data()), static_cast<std::uint32_t>(raw.size()), split))
            return append(record, raw, split);
        name_.assign(raw.begin(), raw.end());
        name_.push_back('\0');
        const Normalized normal = normalize(name_.data(), name_.data(), false);
        const std::string_view name(name_.data(), normal.length);
        return !is_visible(name) || append(record, name, normal.split);
    }

    void finish() { dirs_.release(out_); }

private:
    bool append(PackRecord& record, std::string_view name, std::size_t split) {
        const std::string_view file = name.substr(split);
        if (out_.names.size() > 0xFFFFFFFFu - 2 * name.size() - 1) return false;
        record.name_offset = static_cast<std::uint32_t>(out_.names.size());
        record.name_length = static_cast<std::uint16_t>(file.size());
        record.dir = dirs_.number_of(name.substr(0, split));
        out_.records.push_back(record);
        out_.names.append(file);
        if (file.empty()) out_.names.push_back('\0');
        return true;
    }

    PackDirectory& out_;
    DirectoryNumbers dirs_;
    std::vector<char> name_;
};

/// At most what the directory has beside its headers, if its recorded size is true.
std::size_t room_for_names(const DirectoryWalk& walk, std::uint64_t pack_size) {
    constexpr std::size_t most_for_one = 64;
    const std::uint64_t size = std::min<std::uint64_t>(walk.directory_size(), pack_size);
    const std::uint64_t headers = std::uint64_t{walk.count()} * zip::central_header_size;
    const std::uint64_t most = std::uint64_t{walk.count()} * most_for_one;
    return static_cast<std::size_t>(size > headers ? std::min(size - headers, most) : 0);
}

}  // namespace

bool read_pack_directory(const PackStore& store, PackDirectory& out) {
    DirectoryWalk walk(store);
    if (!walk.begin()) return false;
    Entries entries(out);
    out.records.reserve(walk.count());
    out.names.reserve(room_for_names(walk, store.length()));
    while (walk.next()) {
        const zip::CentralHeader& header = walk.header();
        const PackRecord record{.header_offset = header.header_offset,
                                .size = header.size,
                                .packed_size = header.packed_size,
                                .crc = header.crc};
        if (!entries.add(record, walk.name())) return refuse_long_names(store);
    }
    entries.finish();
    return walk.is_whole();
}

}  // namespace fs
