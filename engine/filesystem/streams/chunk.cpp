#include <engine/filesystem/streams/chunk.h>

#include <engine/filesystem/log.h>
#include <engine/filesystem/streams/memory.h>

#include "engine/filesystem/log/levels.h"
#include "engine/kernel/bytes.h"

namespace fs {

namespace {

// Known to those who read and filter logs; not a place in this tree.
constexpr const char* log_source = "engine/filesystem/chunk";
constexpr int log_line = 56;
constexpr std::uint32_t error_id = logging::code("ERRR");

constexpr std::uint32_t header_size = 12;
constexpr std::int64_t size_field = 4;

/// The identifier's first character goes first, which is the other way round than numbers go.
std::uint32_t reverse_bytes(std::uint32_t value) {
    return value >> 24 | (value >> 8 & 0xFF00) | (value << 8 & 0xFF0000) | value << 24;
}

/// Whether going to `position` would make a vector longer: a damaged size must not cost memory.
bool lies_behind_vector(ifile& file, std::uint64_t position) {
    auto* const vector = dynamic_cast<vectorfile*>(&file);
    return vector != nullptr && !vector->is_zipped() && position > vector->length();
}

}  // namespace

chunk_save::chunk_save(ifile& file, unsigned id, unsigned version) : file_(&file) {
    file.put_uint(reverse_bytes(id));
    file.put_uint(version);
    file.put_uint(0);
    start_ = file.tell();
}

chunk_save::~chunk_save() {
    const std::uint64_t reached = file_->tell();
    // Where the stream can't go back, a size written here would damage the data behind it.
    if (!file_->seek(static_cast<std::int64_t>(start_) - size_field, EFSSeek::BEGIN)) return;
    file_->put_uint(static_cast<unsigned>(reached - start_));
    file_->seek(static_cast<std::int64_t>(reached), EFSSeek::BEGIN);
}

chunk_load::chunk_load(ifile& file)
    : id(reverse_bytes(file.get_uint())), version(file.get_uint()), size(file.get_uint()), file_(&file) {
    end = file.tell() + size;
}

chunk_load::~chunk_load() {
    if (lies_behind_vector(*file_, end)) {
        file_->seek(0, EFSSeek::END);
    } else {
        file_->seek(static_cast<std::int64_t>(end), EFSSeek::BEGIN);
    }
}

void chunk_load::rewind() { end -= std::uint64_t{header_size} + size; }

bool chunk_load::match(unsigned wanted_id, unsigned wanted_version, const char* context) const {
    if (wanted_id == id && wanted_version == version) return true;
    if (context == nullptr) return false;
    std::uint8_t letters[5] = {};
    kernel::store_u32(letters, reverse_bytes(id));
    // The version is the one asked for, not the chunk's own.
    _CLog(_CLogLevelFromId(error_id), _CLogCategoryFromLabel(error_id).c_str(), log_source, log_line,
          _CLFilter(error_id), CLLineMode::CONTINUE, "%s Unknown data chunk %s_%i\n", context,
          reinterpret_cast<const char*>(letters), static_cast<int>(wanted_version));
    return false;
}

bool chunk_load::is_data_chunk() const {
    const std::uint32_t first = id >> 24;
    return first >= 'a' && first <= 'z';
}

}  // namespace fs
