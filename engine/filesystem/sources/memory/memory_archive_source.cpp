#include <algorithm>
#include <cstdlib>

#include <engine/filesystem/sources/memory_archive.h>
#include <engine/filesystem/streams/memory.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/bytes.h"

namespace fs {

namespace {

constexpr std::uint64_t best_ratio = 1032;  // deflate makes no more than this of a byte: a longer length is a lie

SFsFile* refuse(const fs::path& p, EFSError::TYPE code) {
    set_error(code, p.FileName(), "The memory archive cannot decompress the entry into its recorded length.");
    return nullptr;
}

}  // namespace

CMemZip_dir::CMemZip_dir(ZippedDataArchive* archive, EFSSourceType::TYPE type) : archive_(archive), type_(type) {}
CMemZip_dir::~CMemZip_dir() = default;

bool CMemZip_dir::exists(const fs::path& p) { return archive_ && archive_->EntryExists(p.FileName()); }

void CMemZip_dir::full_path(fs::path& out, const fs::path& p) {
    if (exists(p)) {
        out = p;
    } else {
        out.Release();
    }
}

void CMemZip_dir::root_path(fs::path& out, const fs::path& /*p*/) { out.Release(); }

SFsFile* CMemZip_dir::open_read(const fs::path& p, FFSOpenFlags::FLAGS /*flags*/) {
    std::uint64_t packed_size = 0;
    if (!archive_ || !archive_->GetEntry(p.FileName(), nullptr, &packed_size)) return nullptr;
    const std::uint64_t size = archive_->GetEntryUnzippedLength(p.FileName());
    if (size / best_ratio > packed_size) return refuse(p, EFSError::BAD_FORMAT);
    // Zeros: a recorded length that is too large must not show what lay in the memory before.
    void* buffer = std::calloc(std::max<std::size_t>(1, static_cast<std::size_t>(size)), 1);
    std::uint32_t length = 0;
    if (!buffer || !archive_->ReadEntryAsZippedData(p.FileName(), buffer, size, &length)) {
        std::free(buffer);
        return refuse(p, buffer ? EFSError::BAD_FORMAT : EFSError::OUT_OF_MEMORY);
    }
    FileInMemory* file = FileInMemory::create(buffer, size);
    if (!file) return nullptr;
    file->source = this;
    file->name = join_name(p.PathNameView(), p.FileNameView());
    return file;
}

// What an archive in memory has none of: it has no directories and no times, and files cannot be written to it.

bool CMemZip_dir::init(const fs::path& /*root*/, FFSAddSourceFlags::ENUM /*flags*/, fs::dir_listing* /*listing*/) {
    return true;
}
void CMemZip_dir::clear() {}
const fs::path& CMemZip_dir::path() { return path_; }
FFSAddSourceFlags::ENUM CMemZip_dir::flags() { return flags_; }
void CMemZip_dir::refresh_dir(const char* /*dir*/) {}
void CMemZip_dir::refresh() {}
bool CMemZip_dir::writable() { return false; }
EFSSourceType::TYPE CMemZip_dir::type() { return type_; }
std::int64_t CMemZip_dir::write_time(const fs::path& /*p*/) { return -1; }
bool CMemZip_dir::set_write_time(const fs::path& /*p*/, std::int64_t /*time*/) { return false; }
bool CMemZip_dir::is_protected() { return false; }
bool CMemZip_dir::read_only(const fs::path& /*p*/) { return true; }
bool CMemZip_dir::set_read_only(const fs::path& /*p*/, bool /*on*/) { return false; }
SFsFile* CMemZip_dir::open_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CMemZip_dir::open_append(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CMemZip_dir::open_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CMemZip_dir::create_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
SFsFile* CMemZip_dir::create_read_write(const fs::path& /*p*/, FFSOpenFlags::FLAGS /*flags*/) { return nullptr; }
bool CMemZip_dir::mkdir(const fs::path& /*p*/) { return false; }
void CMemZip_dir::rem_dir(const fs::path& /*p*/) {}
bool CMemZip_dir::rem_file(const fs::path& /*p*/) { return false; }
FS_NAME* CMemZip_dir::get_file_list(const char* /*dir*/, const char* /*mask*/, bool /*flag*/) { return nullptr; }
FS_NAME* CMemZip_dir::search_substring(const char* /*text*/) { return nullptr; }
fs::dir* CMemZip_dir::dir_tree() { return nullptr; }

}  // namespace fs
