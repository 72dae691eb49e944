#include "engine/filesystem/sources/pack/directory.h"

#include <algorithm>
#include <array>
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
    static constexpr std::uint64_t capacity = 256 * 1024;

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
        if (dir == text_of(last_)) return last_;
        const std::uint64_t hash = hash_text(dir);
        std::size_t slot = hash & (slots_.size() - 1);
        while (slots_[slot] != 0 && text_of(slots_[slot]) != dir) slot = (slot + 1) & (slots_.size() - 1);
        if (slots_[slot] == 0) {
            slots_[slot] = append(dir);
            last_ = slots_[slot];
            if (places_.size() * 2 > slots_.size()) grow();
            return last_;
        }
        return last_ = slots_[slot];
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
    };

    std::string_view text_of(std::uint16_t number) const {
        if (number == 0) return {};
        const Place& place = places_[number - 1u];
        return {text_.data() + place.offset, place.length};
    }

    std::uint16_t append(std::string_view dir) {
        places_.push_back({static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(dir.size())});
        text_.append(dir);
        return static_cast<std::uint16_t>(places_.size());  // at most one directory for each of 65,535 entries
    }

    void grow() {
        std::vector<std::uint16_t> slots(slots_.size() * 2, 0);
        for (std::size_t number = 1; number <= places_.size(); ++number) {
            std::size_t slot = hash_text(text_of(static_cast<std::uint16_t>(number))) & (slots.size() - 1);
            while (slots[slot] != 0) slot = (slot + 1) & (slots.size() - 1);
            slots[slot] = static_cast<std::uint16_t>(number);
        }
        slots_ = std::move(slots);
    }

    std::vector<Place> places_;
    std::vector<std::uint16_t> slots_;  // numbers; 0 is an empty slot
    std::string text_;
    std::uint16_t last_ = 0;  // neighbours in a pack mostly share their directory
};

/// Directories, and what lies in a directory whose name begins with "#", are not files of the pack.
bool is_visible(std::string_view name) {
    return (name.empty() || name.back() != '/') && name.find("/#") == std::string_view::npos;
}

/// What the bytes of a name ask for when it is looked through.
enum NameByte : std::uint8_t { PLAIN, SLASH, AFTER_SLASH, OTHER };

constexpr std::array<std::uint8_t, 256> make_name_bytes() {
    std::array<std::uint8_t, 256> kinds{};
    for (std::size_t byte = 'A'; byte <= 'Z'; ++byte) kinds[byte] = OTHER;
    for (const char byte : {'\0', '\\', ':'}) kinds[static_cast<std::uint8_t>(byte)] = OTHER;
    for (const char byte : {'.', '#'}) kinds[static_cast<std::uint8_t>(byte)] = AFTER_SLASH;
    kinds['/'] = SLASH;
    return kinds;
}
constexpr std::array<std::uint8_t, 256> name_bytes = make_name_bytes();

/// Whether a name, as most do, stands in normal form and is visible; `split` is then just past its last "/". Says no to
/// whatever needs a closer look: a first byte, or one behind a "/", that is ".", "#" or "/".
bool is_plain(const std::uint8_t* name, std::uint32_t length, std::uint32_t& split) {
    split = 0;
    for (std::uint32_t i = 0; i < length; ++i) {
        const std::uint8_t kind = name_bytes[name[i]];
        if (kind == PLAIN || (kind == AFTER_SLASH && i != split)) continue;
        if (kind != SLASH || i == split) return false;
        split = i + 1;
    }
    return split != length;
}

/// Takes the entries one by one.
class Entries {
public:
    explicit Entries(PackDirectory& out) : out_(out) {}

    /// False when offsets would no longer fit into 32 bits.
    bool add(const std::uint8_t* header, const std::uint8_t* raw_name, std::uint32_t raw_length) {
        std::uint32_t split = 0;
        if (is_plain(raw_name, raw_length, split)) {
            return record(header, {reinterpret_cast<const char*>(raw_name), raw_length}, split);
        }
        name_.resize(raw_length + std::size_t{1});
        std::memcpy(name_.data(), raw_name, raw_length);
        name_[raw_length] = '\0';
        const Normalized normal = normalize(name_.data(), name_.data(), false);
        const std::string_view name(name_.data(), normal.length);
        return !is_visible(name) || record(header, name, normal.split);
    }

    void finish() { dirs_.release(out_); }

private:
    bool record(const std::uint8_t* header, std::string_view name, std::size_t split) {
        const std::string_view file = name.substr(split);
        if (out_.names.size() > 0xFFFFFFFFu - 2 * name.size()) return false;
        out_.records.push_back({.name_offset = static_cast<std::uint32_t>(out_.names.size()),
                                .name_length = static_cast<std::uint16_t>(file.size()),
                                .dir = dirs_.number_of(name.substr(0, split)),
                                .header_offset = get_u32(header + 42),
                                .size = get_u32(header + 24),
                                .packed_size = get_u32(header + 20)});
        out_.names.append(file);
        return true;
    }

    PackDirectory& out_;
    DirectoryNumbers dirs_;
    std::vector<char> name_;
};

}  // namespace

bool read_pack_directory(const PackStore& store, const char* pack_path, PackDirectory& out) {
    std::uint8_t end[end_record_size];
    if (store.length() < end_record_size ||
        store.read(store.length() - end_record_size, end, end_record_size) != end_record_size) {
        return refuse_short_pack(pack_path, store.length());
    }
    const std::uint32_t count = get_u16(end + 8);
    if (count == 0 && has_comment(store)) return refuse_comment(pack_path);
    Window window(store, get_u32(end + 16));
    Entries entries(out);
    out.records.reserve(count);
    out.names.reserve(std::size_t{count} * 16);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint8_t* found = window.take(header_size);
        if (!found || get_u32(found) != header_signature) return refuse_pack(store, pack_path, i, count);
        std::uint8_t header[header_size];
        std::memcpy(header, found, header_size);
        const std::uint32_t name_length = get_u16(header + 28);
        const std::uint8_t* name = window.take(name_length);
        if (!name) return refuse_pack(store, pack_path, i, count);
        if (!entries.add(header, name, name_length)) return refuse_long_names(pack_path);
        window.skip(std::uint32_t{get_u16(header + 30)} + get_u16(header + 32));
    }
    entries.finish();
    return true;
}

}  // namespace fs
