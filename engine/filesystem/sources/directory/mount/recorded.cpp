#include "engine/filesystem/sources/directory/mount/recorded.h"

#include <cstring>

#include "engine/kernel/bytes.h"
#include "engine/kernel/checksum.h"

// The bytes of a listing: directory after directory. A directory is its two times (8 bytes each), the number of its files
// (4), the length of its text (2) and the text, ending in "/" unless it is empty; a file is the length of its name (2) and
// the name. Every text is what a scan could have found: no name holds a separator or is "." or "..", and no directory climbs
// or stands at the root of the disk. What stands before them in a file is described in docs/formats.md.

namespace fs {

namespace {

constexpr std::size_t directory_head = 20;  // before the text
constexpr std::size_t longest_text = 0xFFFF;

constexpr std::uint8_t magic[4] = {'F', 'S', 'C', 'L'};
constexpr std::uint32_t version = 2;
constexpr std::size_t checked_from = 12;  // behind magic, version and checksum
constexpr std::size_t file_head = checked_from + 4 + 2;

// Looks at all of the text: every name of a stored listing comes here, and short loops without a way out are fast.
bool has_separator(std::string_view text) {
    bool found = false;
    for (const char c : text) found |= (c == '/') | (c == '\\') | (c == '\0');
    return found;
}

bool is_name(std::string_view text) { return !text.empty() && text != "." && text != ".." && !has_separator(text); }

bool is_directory(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = text.find('/');
        if (end == std::string_view::npos || !is_name(text.substr(0, end))) return false;
        text.remove_prefix(end + 1);
    }
    return true;
}

}  // namespace

std::uint8_t* dir_listing::extend(std::size_t size) {
    bytes_.resize(bytes_.size() + size);
    return bytes_.data() + bytes_.size() - size;
}

void dir_listing::put_text(std::string_view text) {
    if (text.size() > longest_text) {
        spoil();
        text = {};
    }
    std::uint8_t* const out = extend(2 + text.size());
    kernel::store_u16(out, static_cast<std::uint16_t>(text.size()));
    text.copy(reinterpret_cast<char*>(out + 2), text.size());
}

void dir_listing::add_directory(std::string_view dir, const platform::DirectoryTimes& times) {
    std::uint8_t* const head = extend(directory_head);
    kernel::store_u64(head, static_cast<std::uint64_t>(times.written));
    kernel::store_u64(head + 8, static_cast<std::uint64_t>(times.changed));
    kernel::store_u32(head + 16, 0);
    count_at_ = bytes_.size() - 4;
    put_text(dir);
}

void dir_listing::add_file(std::string_view name) {
    put_text(name);
    std::uint8_t* const count = bytes_.data() + count_at_;
    kernel::store_u32(count, kernel::load_u32(count) + 1);
}

bool dir_listing::assign(std::span<const std::uint8_t> bytes) {
    clear();
    ListingReader reader(bytes);
    ListingReader::Directory directory;
    std::size_t files = 0;
    for (; !reader.at_end(); files += directory.files) {
        if (!reader.read_directory(directory) || !reader.skip_files(directory.files)) return false;
    }
    bytes_.assign(bytes.begin(), bytes.end());
    is_stored_ = true;
    files_ = files;
    return true;
}

bool ListingReader::read_text(std::string_view& out) {
    if (rest_.size() < 2) return false;
    const std::size_t length = kernel::load_u16(rest_.data());
    rest_ = rest_.subspan(2);
    if (length > rest_.size()) return false;
    out = {reinterpret_cast<const char*>(rest_.data()), length};
    rest_ = rest_.subspan(length);
    return true;
}

bool ListingReader::read_directory(Directory& out) {
    if (rest_.size() < directory_head) return false;
    out.times.written = static_cast<std::int64_t>(kernel::load_u64(rest_.data()));
    out.times.changed = static_cast<std::int64_t>(kernel::load_u64(rest_.data() + 8));
    out.files = kernel::load_u32(rest_.data() + 16);
    rest_ = rest_.subspan(directory_head);
    return read_text(out.dir) && (is_checked_ || is_directory(out.dir));
}

bool ListingReader::read_file(std::string_view& out) { return read_text(out) && (is_checked_ || is_name(out)); }

bool ListingReader::skip_files(std::uint32_t count) {
    std::string_view name;
    for (; count > 0; --count) {
        if (!read_file(name)) return false;
    }
    return true;
}

std::vector<std::uint8_t> encode_listing(const ListingKey& key, const dir_listing& listing) {
    const std::string_view path = key.source_path;
    const std::span<const std::uint8_t> content = listing.bytes();
    std::vector<std::uint8_t> out(file_head + path.size() + content.size());
    std::memcpy(out.data(), magic, sizeof magic);
    kernel::store_u32(out.data() + 4, version);
    kernel::store_u32(out.data() + checked_from, key.flags);
    kernel::store_u16(out.data() + checked_from + 4, static_cast<std::uint16_t>(path.size()));
    path.copy(reinterpret_cast<char*>(out.data() + file_head), path.size());
    if (!content.empty()) std::memcpy(out.data() + file_head + path.size(), content.data(), content.size());
    kernel::store_u32(out.data() + 8, kernel::crc32(0, out.data() + checked_from, out.size() - checked_from));
    return out;
}

// The checksum comes first of all checks that look at the content, so that what lies behind it is, but for malice, what was
// written.
bool decode_listing(const ListingKey& key, std::span<const std::uint8_t> bytes, dir_listing& out) {
    out.clear();
    if (bytes.size() < file_head || std::memcmp(bytes.data(), magic, sizeof magic) != 0) return false;
    if (kernel::load_u32(bytes.data() + 4) != version) return false;
    const std::span<const std::uint8_t> checked = bytes.subspan(checked_from);
    if (kernel::load_u32(bytes.data() + 8) != kernel::crc32(0, checked.data(), checked.size())) return false;
    if (kernel::load_u32(checked.data()) != key.flags) return false;
    const std::size_t path_size = kernel::load_u16(checked.data() + 4);
    const std::span<const std::uint8_t> rest = bytes.subspan(file_head);
    if (path_size > rest.size()) return false;
    if (std::string_view(reinterpret_cast<const char*>(rest.data()), path_size) != key.source_path) return false;
    return out.assign(rest.subspan(path_size));
}

}  // namespace fs
