#include "engine/filesystem/sources/pack/walk.h"

#include <algorithm>
#include <string>

#include "engine/filesystem/contract/error.h"

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

}  // namespace

DirectoryWalk::DirectoryWalk(const PackStore& store) : store_(store) {
    const std::uint64_t length = store.length();
    const auto bytes = length < zip::end_record_size
                           ? std::vector<std::uint8_t>()
                           : read_some(store, length - zip::end_record_size, zip::end_record_size);
    if (bytes.size() != zip::end_record_size)
        refuse(store, EFSError::BAD_FORMAT,
               "file of " + std::to_string(length) + " bytes: a pack ends in a record of 22 bytes");
    end_ = zip::read_end_record(bytes.data());
    next_ = end_.directory_offset;
    // These would mount with entries missing: the last 22 bytes of a zip file with a comment may count none, by chance,
    // and zip64 files count at most 65,535.
    if (count() == 0 && find_ending(store) == Ending::WITH_COMMENT) refuse_unless_plain(store, Ending::WITH_COMMENT);
    if (count() == zip::most_entries && find_ending(store) == Ending::ZIP64) refuse_unless_plain(store, Ending::ZIP64);
}

bool DirectoryWalk::next() {
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

/// The next `size` bytes, which stay until the next call.
const std::uint8_t* DirectoryWalk::take(std::uint32_t size) {
    const std::uint64_t end = start_ + filled_;
    if (next_ < start_ || next_ > end || size > end - next_) load(size);
    const std::uint8_t* const bytes = view_ + (next_ - start_);
    next_ += size;
    return bytes;
}

void DirectoryWalk::load(std::uint32_t size) {
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
void DirectoryWalk::fail() const {
    const std::string count_text = std::to_string(count());
    const std::string done_text = std::to_string(done_);
    refuse_unless_plain(store_, find_ending(store_));
    if (done_ == 0 && has_bytes_in_front(store_, end_))
        refuse(store_, EFSError::UNSUPPORTED, "zip file with bytes in front that its offsets do not count");
    if (entry_ + zip::end_record_size == store_.length())
        refuse(store_, EFSError::BAD_FORMAT,
               "pack whose end record counts " + count_text + " entries where its directory has " + done_text);
    refuse(store_, EFSError::BAD_FORMAT,
           "pack whose central directory is damaged at entry " + std::to_string(done_ + 1) + " of " + count_text);
}

}  // namespace fs
