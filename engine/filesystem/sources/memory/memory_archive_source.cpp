#include <algorithm>
#include <cstdlib>

#include <engine/filesystem/sources/memory_archive.h>
#include <engine/filesystem/streams/memory.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/log/message.h"

namespace fs {

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/memory_archive"};
constexpr std::uint64_t best_ratio = 1032;  // deflate makes no more than this of a byte: a longer length is a lie

SFsFile* refuse_entry(const fs::path& p) {
    constexpr const char* reason = "The entry of the memory archive does not decompress into its recorded length.";
    set_error(EFSError::BAD_FORMAT, p.FileName(), reason);
    log_message(messages, Log::ELevel::ERRR, __LINE__, "'%s': %s\n", p.FileName(), reason);
    return nullptr;
}

SFsFile* refuse_memory(const fs::path& p) {
    set_error(EFSError::OUT_OF_MEMORY, p.FileName(), "There is no memory for the entry of the memory archive.");
    return nullptr;
}

}  // namespace

CMemZip_dir::CMemZip_dir(ZippedDataArchive* archive, EFSSourceType::TYPE type) : archive_(archive), type_(type) {}
CMemZip_dir::~CMemZip_dir() = default;

bool CMemZip_dir::init(const fs::path& /*root*/, FFSAddSourceFlags::ENUM /*flags*/, fs::dir_listing* /*listing*/) {
    return true;
}

EFSSourceType::TYPE CMemZip_dir::type() { return type_; }
bool CMemZip_dir::exists(const fs::path& p) { return archive_ && archive_->EntryExists(p.FileName()); }
bool CMemZip_dir::exists_whole(const fs::path& p) { return p.PathNameView().empty() && exists(p); }
void CMemZip_dir::full_path(fs::path& out, const fs::path& p) { ReadOnlySource::root_path(out, p); }
void CMemZip_dir::root_path(fs::path& out, const fs::path& /*p*/) { out.Release(); }

SFsFile* CMemZip_dir::open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    std::uint64_t packed_size = 0;
    if ((flags & FFSOpenFlags::WHOLE_NAME) != 0 && !p.PathNameView().empty()) return nullptr;
    if (!archive_ || !archive_->GetEntry(p.FileName(), nullptr, &packed_size)) return nullptr;
    const std::uint64_t size = archive_->GetEntryUnzippedLength(p.FileName());
    if (size / best_ratio > packed_size) return refuse_entry(p);
    // Zeros: a recorded length that is too large must not show what lay in the memory before.
    void* buffer = std::calloc(std::max<std::size_t>(1, static_cast<std::size_t>(size)), 1);
    if (!buffer) return refuse_memory(p);
    std::uint32_t length = 0;
    if (!archive_->ReadEntryAsZippedData(p.FileName(), buffer, size, &length)) {
        std::free(buffer);
        return refuse_entry(p);
    }
    FileInMemory* file = FileInMemory::create(buffer, size);
    if (!file) return refuse_memory(p);
    file->source = this;
    file->name = joined_name(p.PathNameView(), p.FileNameView());
    return file;
}

}  // namespace fs
