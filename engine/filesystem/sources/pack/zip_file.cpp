#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/sources/pack/entry_reader.h"
#include "engine/kernel/bytes.h"

class fs::PackView {
public:
    explicit PackView(platform::Mapping bytes) : mapping(std::move(bytes)) {}
    platform::Mapping mapping;
};

// The blocks of a reader need not know of reads of whole entries: a good one reads the same by whichever way, and a
// damaged one is left to the blocks.

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/pack"};

constexpr const char* fault_words[] = {
    // by PackFault
    "nothing is wrong",
    "its compressed data is damaged",
    "it has fewer bytes than the pack says",
    "its checksum does not match",
    "the pack ends before it does",
    "its bytes are out of reach",
};
static_assert(std::size(fault_words) == static_cast<std::size_t>(fs::PackFault::IO) + 1);

}  // namespace

SZipFile::SZipFile(CFSSource* owner, std::shared_ptr<fs::PackArchive> archive, std::uint32_t entry, bool exact_seeks)
    : archive_(std::move(archive)), entry_(entry), exact_seeks_(exact_seeks) {
    source = owner;
    name = fs::joined_name(archive_->table().names.dir(entry), archive_->table().names.name(entry));
    size_ = archive_->table().entry(entry).size;
}

SZipFile::~SZipFile() = default;

std::uint64_t SZipFile::read(void* buffer, std::uint64_t size) {
    if (position_ > size_) return 0;
    const fs::DiskUse use("read", archive_->store().is_in_memory() ? nullptr : name);
    const std::uint64_t count = std::min<std::uint64_t>(size, size_ - position_);
    return fs::guarded(name, std::uint64_t{0}, [&] { return read_some(static_cast<std::uint8_t*>(buffer), count); });
}

std::uint64_t SZipFile::read_some(std::uint8_t* buffer, std::uint64_t count) {
    if (!archive_->locate(entry_)) return report(fs::PackFault::IO), 0;
    const fs::PackedData data = archive_->data_of(entry_);
    const bool in_blocks = data.method == EFSPackMethod::STORE && !exact_seeks_;
    if (count == 0 && !in_blocks) return 0;  // nothing is decoded for nothing
    const bool whole = position_ == 0 && count == size_ && count != 0 && data.method != EFSPackMethod::STORE;
    std::uint64_t delivered = count;
    auto fault = fs::PackFault::NONE;
    if (!whole || !archive_->whole_decoders().decode(archive_->store(), data, buffer)) {
        if (!reader_) reader_ = fs::EntryReader::create(*archive_, entry_, data, exact_seeks_);
        delivered = reader_->read(position_, buffer, count);
        fault = reader_->fault();
    }
    if (position_ == 0) checked_ = crc_ = 0;
    const bool in_order = position_ == checked_;
    if (in_order) {
        crc_ = kernel::crc32(crc_, buffer, static_cast<std::size_t>(delivered));
        checked_ += static_cast<std::uint32_t>(delivered);
    }
    position_ += delivered;
    if (fault == fs::PackFault::NONE) {
        const bool is_through = in_order && checked_ == size_ && delivered != 0;
        // A seek in blocks goes to other input than the position's, which may end before.
        if (delivered < count && (in_order || !in_blocks)) fault = fs::PackFault::ENDS_EARLY;
        if (is_through && crc_ != archive_->table().entry(entry_).crc) fault = fs::PackFault::CHECKSUM;
    }
    if (fault != fs::PackFault::NONE) report(fault);
    return delivered;
}

/// The caller's thread has the reason after every read that met it; the log gets one message for each open file.
void SZipFile::report(fs::PackFault fault) {
    const std::string& pack = archive_->store().path();
    const char* words = fault_words[static_cast<std::size_t>(fault)];
    if (!std::exchange(told_, true)) {
        log_message(messages, Log::ELevel::ERRR, __LINE__, "The entry '%s' of the pack '%s' cannot be read: %s.\n",
                    fs::file_name(this), pack.c_str(), words);
    }
    if (fault == fs::PackFault::IO) return;  // whoever asked for the bytes has told why
    fs::set_error(EFSError::BAD_FORMAT, name, "The entry of the pack \"" + pack + "\" cannot be read: " + words + ".");
}

std::uint64_t SZipFile::write(const void* /*buffer*/, std::uint64_t /*size*/) { return 0; }

bool SZipFile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const std::uint64_t start = origin == EFSSeek::CURRENT ? position_ : origin == EFSSeek::END ? size_ : 0;
    position_ = start + static_cast<std::uint64_t>(offset);
    if (reader_) reader_->seek(position_);
    return true;
}

const void* SZipFile::view(std::uint64_t& size, bool populate) {
    const fs::PackStore& store = archive_->store();
    return fs::guarded<const void*>(name, nullptr, [&]() -> const void* {
        if (store.is_remote() || !archive_->locate(entry_)) return nullptr;
        const fs::PackedData data = archive_->data_of(entry_);
        size = data.size;
        if (data.method != EFSPackMethod::STORE || size == 0 || data.packed_size != size) return nullptr;
        if (const void* const bytes = store.view(data.offset, size)) return bytes;
        if (data.offset > store.length() || size > store.length() - data.offset) return nullptr;
        if (!view_) {
            platform::Mapping mapping = store.map(data.offset, size);
            if (mapping.IsEmpty()) return nullptr;
            view_ = std::make_unique<fs::PackView>(std::move(mapping));
        }
        if (!populate || view_->mapping.Populate()) return view_->mapping.Data();
        fs::refuse_by_disk(store.path().c_str(), "cannot be mapped");
        return nullptr;
    });
}

std::uint64_t SZipFile::length() { return size_; }
std::uint64_t SZipFile::tell() { return position_; }
