#include "engine/filesystem/sources/pack/archive.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/formats/zip.h"

namespace fs {

namespace {

[[noreturn]] void refuse(const PackStore& store, EFSError::TYPE code, const std::string& what) {
    set_error(code, store.path().c_str(), "The pack source refuses a " + what + ".");
    throw StoredFailure();
}

/// Reads what the pack has at `offset`, up to `size` bytes.
std::vector<std::uint8_t> read_some(const PackStore& store, std::uint64_t offset, std::uint64_t size) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    const std::uint64_t got = store.read(offset, bytes.data(), size);
    if (got == PackStore::failed) throw StoredFailure();
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
}

enum class Ending { MISSING, PLAIN, WITH_COMMENT, ZIP64 };

/// What the file ends with, by the rules of zip files rather than of packs.
Ending find_ending(const PackStore& store) {
    const std::uint64_t size =
        std::min<std::uint64_t>(store.length(), zip::zip64_locator_size + zip::end_record_size + zip::longest_text);
    const std::vector<std::uint8_t> tail = read_some(store, store.length() - size, size);
    for (std::size_t at = tail.size() - std::min<std::size_t>(tail.size(), zip::end_record_size) + 1; at-- > 0;) {
        if (tail.size() - at < zip::end_record_size || kernel::load_u32(&tail[at]) != zip::end_signature) continue;
        const std::size_t end = at + zip::end_record_size;
        if (end + zip::read_end_record(&tail[at]).comment_size != tail.size()) continue;
        if (end != tail.size()) return Ending::WITH_COMMENT;
        const bool is_zip64 = at >= zip::zip64_locator_size &&
                              kernel::load_u32(&tail[at - zip::zip64_locator_size]) == zip::zip64_locator_signature;
        return is_zip64 ? Ending::ZIP64 : Ending::PLAIN;
    }
    return Ending::MISSING;
}

void refuse_unless_plain(const PackStore& store, Ending ending) {
    if (ending == Ending::WITH_COMMENT) refuse(store, EFSError::UNSUPPORTED, "zip file that has a comment");
    if (ending == Ending::ZIP64) refuse(store, EFSError::UNSUPPORTED, "zip64 file");
    if (ending == Ending::MISSING)
        refuse(store, EFSError::BAD_FORMAT, "file that does not end in a zip file's end record");
}

/// Whether the directory lies right before the end record, as it does, while the record names another place.
bool has_bytes_in_front(const PackStore& store, const zip::EndRecord& end) {
    const std::uint64_t before_end = store.length() - zip::end_record_size;
    if (end.directory_size > before_end || before_end - end.directory_size <= end.directory_offset) return false;
    const auto signature = read_some(store, before_end - end.directory_size, 4);
    return signature.size() == 4 && kernel::load_u32(signature.data()) == zip::central_signature;
}

/// Goes through the central directory that a pack's last 22 bytes tell of, entry by entry, through one window that
/// moves forward: that costs a few large reads and no more memory than the window, whatever offsets and lengths claim.
class DirectoryWalk {
public:
    explicit DirectoryWalk(const PackStore& store) : store_(store) {
        const std::uint64_t size = zip::end_record_size;
        const auto bytes = read_some(store, store.length() - std::min(size, store.length()), size);
        if (bytes.size() != size)
            refuse(store, EFSError::BAD_FORMAT,
                   "file of " + std::to_string(store.length()) + " bytes: a pack ends in a record of 22 bytes");
        end_ = zip::read_end_record(bytes.data());
        next_ = end_.directory_offset;
        // These would mount with entries missing: the last 22 bytes of a zip file with a comment may count none, by chance,
        // and zip64 files count at most 65,535.
        if (count() == 0 && find_ending(store) == Ending::WITH_COMMENT)
            refuse_unless_plain(store, Ending::WITH_COMMENT);
        if (count() == zip::most_entries && find_ending(store) == Ending::ZIP64)
            refuse_unless_plain(store, Ending::ZIP64);
    }

    /// As the pack counts them.
    std::uint32_t count() const { return end_.entries; }
    /// Goes to the next entry. False after the last one.
    bool next() {
        if (done_ == count()) return false;
        entry_ = next_;
        const std::uint8_t* const bytes = take(zip::central_header_size);
        if (kernel::load_u32(bytes) != zip::central_signature) fail();
        header_ = zip::read_central_header(bytes);
        name_ = {reinterpret_cast<const char*>(take(header_.name_size)), header_.name_size};
        next_ += header_.texts_size;
        ++done_;
        return true;
    }
    const zip::CentralHeader& header() const { return header_; }
    /// As it stands in the pack; until the next call of next().
    std::string_view name() const { return name_; }

private:
    static constexpr std::uint64_t capacity = 64 * 1024;  // stays in the processor's nearer caches

    /// The next `size` bytes, which stay until the next call.
    const std::uint8_t* take(std::uint32_t size) {
        const std::uint64_t end = start_ + filled_;
        if (next_ < start_ || next_ > end || size > end - next_) load(size);
        const std::uint8_t* const bytes = view_ + (next_ - start_);
        next_ += size;
        return bytes;
    }
    void load(std::uint32_t size) {
        start_ = next_;
        filled_ = 0;
        if (start_ > store_.length() || size > store_.length() - start_) fail();
        filled_ = std::min(capacity, store_.length() - start_);
        view_ = store_.view(start_, filled_);
        if (view_) return;
        buffer_.resize(capacity);
        view_ = buffer_.data();
        filled_ = store_.read(start_, buffer_.data(), filled_);
        if (filled_ == PackStore::failed) throw StoredFailure();
        if (filled_ < size) fail();
    }
    /// The next entry is not where the last 22 bytes lead; looks at the file for the reason.
    [[noreturn]] void fail() const {
        const std::string count_text = std::to_string(count());
        refuse_unless_plain(store_, find_ending(store_));
        if (done_ == 0 && has_bytes_in_front(store_, end_))
            refuse(store_, EFSError::UNSUPPORTED, "zip file with bytes in front that its offsets do not count");
        if (entry_ + zip::end_record_size == store_.length())
            refuse(store_, EFSError::BAD_FORMAT,
                   "pack whose end record counts " + count_text + " entries where its directory has " +
                       std::to_string(done_));
        refuse(store_, EFSError::BAD_FORMAT,
               "pack whose central directory is damaged at entry " + std::to_string(done_ + 1) + " of " + count_text);
    }

    const PackStore& store_;
    std::vector<std::uint8_t> buffer_;
    const std::uint8_t* view_ = nullptr;
    std::uint64_t start_ = 0;  // offset in the pack of the window's first byte
    std::uint64_t filled_ = 0;
    std::uint64_t next_ = 0;
    std::uint64_t entry_ = 0;  // where the header begins that is read, or was last
    zip::EndRecord end_{};
    zip::CentralHeader header_{};
    std::string_view name_;
    std::uint32_t done_ = 0;
};

/// A file as the directory tells it, before it has its place.
struct Found {
    PackEntry told;
    std::uint32_t name_offset;  // into the text of all names
    std::uint32_t name_size;
    std::uint32_t dir;  // as the table of names numbers it
};

/// Directories, and what lies in a directory whose name begins with "#", are not files of the pack.
bool is_visible(std::string_view name) {
    return (name.empty() || name.back() != '/') && name.find("/#") == std::string_view::npos;
}

/// Goes through the directory; the names of the files come into `text`.
std::vector<Found> find_files(const PackStore& store, NameTable& dirs, std::string& text) {
    DirectoryWalk walk(store);
    std::vector<Found> files;
    files.reserve(walk.count());
    for (std::string full; walk.next();) {
        full = walk.name();
        const Normalized normal = normalize(full.data(), full.data(), false);
        const std::string_view name = std::string_view(full).substr(0, normal.length);
        if (!is_visible(name)) continue;
        const zip::CentralHeader& header = walk.header();
        files.push_back({.told = {.header_offset = header.header_offset,
                                  .size = header.size,
                                  .packed_size = header.packed_size,
                                  .crc = header.crc},
                         .name_offset = static_cast<std::uint32_t>(text.size()),
                         .name_size = static_cast<std::uint32_t>(name.size() - normal.split),
                         .dir = dirs.intern_dir(name.substr(0, normal.split))});
        text.append(name.substr(normal.split));
    }
    return files;
}

}  // namespace

PackTable read_table(const PackStore& store) {
    PackTable table;
    std::string text;  // at most 65,535 names of as many bytes
    std::vector<Found> files = find_files(store, table.names, text);
    const auto name_of = [&](const Found& file) {
        return std::string_view(text).substr(file.name_offset, file.name_size);
    };
    std::stable_sort(files.begin(), files.end(), [&](const Found& a, const Found& b) {
        const int order = name_of(a).compare(name_of(b));
        return order != 0 ? order < 0 : table.names.dir_text(a.dir) < table.names.dir_text(b.dir);
    });
    table.entries.reserve(files.size());
    table.names.reserve(files.size(), text.size());
    for (const Found& file : files) {
        table.names.add(file.dir, name_of(file), static_cast<std::uint32_t>(table.entries.size()));
        table.entries.push_back(file.told);
    }
    return table;
}

ztl::vector<SFsPackEntry> list_entries(const PackStore& store) {
    ztl::vector<SFsPackEntry> entries;
    for (DirectoryWalk walk(store); walk.next();) {
        if (walk.name().ends_with('/') || walk.name().ends_with('\\')) continue;
        const zip::CentralHeader& header = walk.header();
        entries.push_back({.name = fs::string(walk.name()),
                           .size = header.size,
                           .packed_size = header.packed_size,
                           .method = header.method,
                           .crc = header.crc,
                           .time = zip::from_dos_time(header.dos_date, header.dos_time)});
    }
    return entries;
}

}  // namespace fs
