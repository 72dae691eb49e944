#include <algorithm>
#include <utility>

#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/sources/pack/block_reader.h"
#include "engine/filesystem/sources/pack/bytes.h"

SZipFile::SZipFile(CFSSource* owner, std::shared_ptr<fs::PackArchive> archive, std::uint32_t entry)
    : archive_(std::move(archive)), entry_(entry) {
    source = owner;
    name = fs::join_name(archive_->table().dir(entry), archive_->table().name(entry));
    size_ = archive_->table().entry(entry).size;
}

SZipFile::~SZipFile() = default;

std::uint64_t SZipFile::read(void* buffer, std::uint64_t size) {
    if (position_ > size_) return 0;
    const std::uint64_t count = std::min<std::uint64_t>(size, size_ - position_);
    const fs::PackedData data = archive_->data_of(entry_);
    auto* bytes = static_cast<std::uint8_t*>(buffer);
    // The blocks need not know of this: a whole deflated entry that is good reads the same by whichever way.
    if (!data.stored && position_ == 0 && count == size_ && count != 0 &&
        archive_->whole_decoders().decode(*archive_, data, bytes)) {
        position_ = size_;
        return count;
    }
    if (!reader_) reader_ = fs::BlockReader::create(*archive_, entry_, data);
    if (!reader_) {
        fs::set_error(EFSError::OUT_OF_MEMORY, name, "The pack source has no memory for decoding the entry.");
        return 0;
    }
    const std::uint64_t delivered = reader_->read(position_, bytes, count);
    position_ += delivered;
    return delivered;
}

std::uint64_t SZipFile::write(const void* /*buffer*/, std::uint64_t /*size*/) { return 0; }

bool SZipFile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const std::uint64_t start = origin == EFSSeek::CURRENT ? position_ : origin == EFSSeek::END ? size_ : 0;
    position_ = start + static_cast<std::uint64_t>(offset);
    if (reader_) reader_->seek(position_);
    return true;
}

std::uint64_t SZipFile::length() { return size_; }
std::uint64_t SZipFile::tell() { return position_; }
