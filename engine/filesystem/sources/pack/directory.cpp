#include "engine/filesystem/sources/pack/directory.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/bytes.h"
#include "engine/filesystem/sources/pack/refusal.h"
#include "engine/filesystem/sources/pack/store.h"

// Words: the end record is the pack's last 22 bytes, whatever they are; it says where the central directory begins and
// how many entries it has. An entry is a header of 46 bytes, its name, and two fields that are passed over.
//
// The directory is read through one window that moves forward, so that mounting costs a few large reads and no more
// memory than the window, whatever the offsets and lengths claim.

namespace fs {

namespace {

constexpr std::uint32_t end_record_size = 22;
constexpr std::uint32_t header_size = 46;
constexpr std::uint32_t header_signature = 0x02014B50;

/// Reads a pack forward. What is asked for at once is smaller than the window.
class Window {
public:
    Window(const PackStore& store, std::uint64_t offset) : store_(store), next_(offset) {}

    /// The next `size` bytes, which stay until the next call; null when the pack ends before them.
    const std::uint8_t* take(std::uint32_t size) {
        const std::uint64_t end = start_ + filled_;
        const bool inside = next_ >= start_ && next_ <= end && size <= end - next_;
        if (!inside && !load(size)) return nullptr;
        const std::uint8_t* bytes = view_ + (next_ - start_);
        next_ += size;
        return bytes;
    }
    void skip(std::uint32_t size) { next_ += size; }

private:
    static constexpr std::uint64_t capacity = 64 * 1024;  // stays in the processor's nearer caches

    bool load(std::uint32_t size) {
        start_ = next_;
        filled_ = 0;
        if (start_ > store_.length() || size > store_.length() - start_) return false;
        filled_ = std::min(capacity, store_.length() - start_);
        view_ = store_.view(start_, filled_);
        if (view_) return true;
        buffer_.resize(capacity);
        filled_ = store_.read(start_, buffer_.data(), filled_);
        view_ = buffer_.data();
        return filled_ >= size;
    }

    const PackStore& store_;
    std::vector<std::uint8_t> buffer_;
    const std::uint8_t* view_ = nullptr;
    std::uint64_t start_ = 0;  // offset in the pack of the window's first byte
    std::uint64_t filled_ = 0;
    std::uint64_t next_;
};

/// Gives each directory one number, in the order of their first appearance.
class DirectoryNumbers {
public:
    DirectoryNumbers() : slots_(1024, 0) {}

    std::uint16_t number_of(std::string_view dir) {
        if (dir.empty()) return 0;
        const auto hash = static_cast<std::uint32_t>(hash_text(dir));
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
    if (rest >= 8) return get_u64(name + at);
    std::uint64_t word = 0;
    if (length >= 8) {
        word = get_u64(name + length - 8) >> 8 * (8 - rest);
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
    bool add(PackRecord record, const std::uint8_t* raw_name, std::uint32_t raw_length) {
        std::uint32_t split = 0;
        if (is_plain(raw_name, raw_length, split)) {
            return append(record, {reinterpret_cast<const char*>(raw_name), raw_length}, split);
        }
        name_.resize(raw_length + std::size_t{1});
        std::memcpy(name_.data(), raw_name, raw_length);
        name_[raw_length] = '\0';
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
std::size_t room_for_names(const PackStore& store, const std::uint8_t* end_record, std::uint32_t count) {
    constexpr std::size_t most_for_one = 64;
    const std::uint64_t size = std::min<std::uint64_t>(get_u32(end_record + 12), store.length());
    const std::uint64_t headers = std::uint64_t{count} * header_size;
    return static_cast<std::size_t>(size > headers ? std::min<std::uint64_t>(size - headers, count * most_for_one) : 0);
}

}  // namespace

bool read_pack_directory(const PackStore& store, const char* pack_path, PackDirectory& out) {
    std::uint8_t end[end_record_size];
    if (store.length() < end_record_size ||
        store.read(store.length() - end_record_size, end, end_record_size) != end_record_size) {
        return refuse_short_pack(pack_path, store.length());
    }
    const std::uint32_t count = get_u16(end + 8);
    if (refuse_miscounted(store, pack_path, count)) return false;
    Window window(store, get_u32(end + 16));
    Entries entries(out);
    out.records.reserve(count);
    out.names.reserve(room_for_names(store, end, count));
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint8_t* header = window.take(header_size);
        if (!header || get_u32(header) != header_signature) return refuse_pack(store, pack_path, i, count);
        const PackRecord record{
            .header_offset = get_u32(header + 42), .size = get_u32(header + 24), .packed_size = get_u32(header + 20)};
        const std::uint32_t name_length = get_u16(header + 28);
        const std::uint32_t passed_over = std::uint32_t{get_u16(header + 30)} + get_u16(header + 32);
        const std::uint8_t* name = window.take(name_length);
        if (!name) return refuse_pack(store, pack_path, i, count);
        if (!entries.add(record, name, name_length)) return refuse_long_names(pack_path);
        window.skip(passed_over);
    }
    entries.finish();
    return true;
}

}  // namespace fs
