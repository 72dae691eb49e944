#include "engine/filesystem/sources/directory/mount/recorded.h"

#include <cstring>

#include "engine/kernel/bytes.h"

// The bytes of a listing: directory after directory. A directory is a zero, its two times (8 bytes each), its text, ending in
// "/" unless it is empty, and the names of its files; a text or name ends with a zero. All are what a scan could have found:
// no name holds a separator or is empty, "." or "..", and no directory climbs or stands at the root of the disk. What stands
// before them in a file is described in docs/formats.md.

namespace fs {

namespace {

constexpr std::size_t directory_head = 1 + 8 + 8;

constexpr std::uint8_t magic[4] = {'F', 'S', 'C', 'L'};
constexpr std::uint32_t version = 3;
constexpr std::size_t checked_from = 12;  // behind magic, version and checksum
constexpr std::size_t file_head = checked_from + 4 + 2;

// Looks at all of the text: every name of a stored listing comes here, and short loops without a way out are fast.
bool has_separator(std::string_view text) {
    bool found = false;
    for (const char c : text) found |= (c == '/') | (c == '\\');
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

void dir_listing::put_text(std::string_view text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    bytes_.push_back(0);
}

void dir_listing::add_directory(std::string_view dir, const platform::DirectoryTimes& times) {
    bytes_.resize(bytes_.size() + directory_head);
    std::uint8_t* const head = bytes_.data() + bytes_.size() - directory_head;
    kernel::store_u64(head + 1, static_cast<std::uint64_t>(times.written));
    kernel::store_u64(head + 9, static_cast<std::uint64_t>(times.changed));
    put_text(dir);
}

std::vector<std::uint8_t> dir_listing::encode(const ListingKey& key) const {
    std::vector<std::uint8_t> out(file_head);
    out.reserve(file_head + key.source_path.size() + bytes_.size());
    std::memcpy(out.data(), magic, sizeof magic);
    kernel::store_u32(out.data() + 4, version);
    kernel::store_u32(out.data() + checked_from, key.flags);
    kernel::store_u16(out.data() + checked_from + 4, static_cast<std::uint16_t>(key.source_path.size()));
    out.insert(out.end(), key.source_path.begin(), key.source_path.end());
    out.insert(out.end(), bytes_.begin(), bytes_.end());
    kernel::store_u32(out.data() + 8, kernel::crc32(0, out.data() + checked_from, out.size() - checked_from));
    return out;
}

// The checksum comes first of all checks that look at the content, so that what lies behind it is, but for malice, what was
// written.
bool dir_listing::decode(const ListingKey& key, std::span<const std::uint8_t> bytes) {
    clear();
    if (bytes.size() < file_head || std::memcmp(bytes.data(), magic, sizeof magic) != 0) return false;
    if (kernel::load_u32(bytes.data() + 4) != version) return false;
    const std::span<const std::uint8_t> checked = bytes.subspan(checked_from);
    if (kernel::load_u32(bytes.data() + 8) != kernel::crc32(0, checked.data(), checked.size())) return false;
    if (kernel::load_u32(checked.data()) != key.flags) return false;
    const std::size_t path_size = kernel::load_u16(checked.data() + 4);
    std::span<const std::uint8_t> rest = bytes.subspan(file_head);
    if (path_size > rest.size()) return false;
    if (std::string_view(reinterpret_cast<const char*>(rest.data()), path_size) != key.source_path) return false;
    rest = rest.subspan(path_size);
    ListingReader reader(rest);
    std::size_t files = 0;
    while (!reader.at_end()) {
        std::string_view text;
        platform::DirectoryTimes times;
        if (!reader.read_directory(text, times)) return false;
        for (; reader.at_file(); ++files) {
            if (!reader.read_file(text)) return false;
        }
    }
    bytes_.assign(rest.begin(), rest.end());
    is_stored_ = true;
    files_ = files;
    return true;
}

bool ListingReader::read_text(std::string_view& out) {
    const auto* const text = reinterpret_cast<const char*>(rest_.data());
    const void* const end = rest_.empty() ? nullptr : std::memchr(text, 0, rest_.size());
    if (end == nullptr) return false;
    out = {text, static_cast<std::size_t>(static_cast<const char*>(end) - text)};
    rest_ = rest_.subspan(out.size() + 1);
    return true;
}

bool ListingReader::read_directory(std::string_view& dir, platform::DirectoryTimes& times) {
    if (at_file() || rest_.size() < directory_head) return false;
    times.written = static_cast<std::int64_t>(kernel::load_u64(rest_.data() + 1));
    times.changed = static_cast<std::int64_t>(kernel::load_u64(rest_.data() + 9));
    rest_ = rest_.subspan(directory_head);
    return read_text(dir) && (is_checked_ || is_directory(dir));
}

bool ListingReader::read_file(std::string_view& name) { return read_text(name) && (is_checked_ || is_name(name)); }

}  // namespace fs
