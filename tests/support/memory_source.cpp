#include "tests/support/memory_source.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <engine/filesystem/registry.h>
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"

namespace test {

namespace {

std::string full_name(const fs::path& p) {
    fs::string name;
    p.FullName(name);
    return name;
}

std::string_view directory_of(const std::string& name) { return std::string_view(name).substr(0, name.rfind('/') + 1); }

std::string lowered(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

}  // namespace

MemoryFile::MemoryFile(CFSSource* owner, const char* file_name, Bytes bytes, std::uint64_t position)
    : bytes_(std::move(bytes)), position_(position) {
    source = owner;
    name = static_cast<char*>(std::malloc(std::strlen(file_name) + 1));
    std::strcpy(name, file_name);
}

std::uint64_t MemoryFile::read(void* buffer, std::uint64_t size) {
    if (position_ >= bytes_->size()) return 0;
    const std::uint64_t count = std::min<std::uint64_t>(size, bytes_->size() - position_);
    std::memcpy(buffer, bytes_->data() + position_, count);
    position_ += count;
    return count;
}

std::uint64_t MemoryFile::write(const void* buffer, std::uint64_t size) {
    const std::uint64_t room = capacity > position_ ? capacity - position_ : 0;
    const std::uint64_t count = std::min(size, room);
    if (bytes_->size() < position_ + count) bytes_->resize(position_ + count);
    std::memcpy(bytes_->data() + position_, buffer, count);
    position_ += count;
    return count;
}

bool MemoryFile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const std::uint64_t base = origin == EFSSeek::BEGIN ? 0 : origin == EFSSeek::CURRENT ? position_ : bytes_->size();
    position_ = base + static_cast<std::uint64_t>(offset);
    return true;
}

MemorySource::MemorySource(const char* mount_path, EFSSourceType::TYPE type, FFSAddSourceFlags::ENUM flags,
                           bool* destroyed)
    : path_(mount_path, true), type_(type), flags_(flags), destroyed_(destroyed) {}

MemorySource::~MemorySource() {
    if (destroyed_ != nullptr) *destroyed_ = true;
}

void MemorySource::add(const std::string& name, const std::string& content) {
    files_[name].bytes = std::make_shared<std::string>(content);
    tree.add_path(std::string(directory_of(name)).c_str());
}

std::string MemorySource::content(const std::string& name) const {
    const auto found = files_.find(name);
    return found != files_.end() ? *found->second.bytes : "(none)";
}

bool MemorySource::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing*) {
    path_ = root;
    flags_ = flags;
    return true;
}

void MemorySource::clear() {
    files_.clear();
    tree.clear();
}

MemorySource::Entry* MemorySource::find(const fs::path& p) {
    const auto found = files_.find(held_name(p));
    return found != files_.end() ? &found->second : nullptr;
}

std::string MemorySource::held_name(const fs::path& p) const {
    std::string name = full_name(p);
    if (!matches_by_end || !p.EmptyPath() || files_.contains(name)) return name;
    for (const auto& [held, entry] : files_) {
        if (held == name || held.ends_with('/' + name)) return held;
    }
    return name;
}

void MemorySource::full_path(fs::path& out, const fs::path& p) {
    if (find(p) == nullptr) return;
    const std::string directory = std::string(path_.PathName()) + p.PathName();
    out.Set(directory.c_str(), p.FileName(), true);
}

void MemorySource::root_path(fs::path& out, const fs::path& p) {
    if (find(p) != nullptr) out = fs::path(held_name(p).c_str(), true);
}

std::int64_t MemorySource::write_time(const fs::path& p) { return find(p) != nullptr ? find(p)->time : -1; }

bool MemorySource::set_write_time(const fs::path& p, std::int64_t time) {
    Entry* const entry = find(p);
    if (entry != nullptr) entry->time = time;
    return entry != nullptr;
}

bool MemorySource::read_only(const fs::path& p) { return find(p) != nullptr && find(p)->read_only; }

bool MemorySource::set_read_only(const fs::path& p, bool on) {
    Entry* const entry = find(p);
    if (entry != nullptr) entry->read_only = on;
    return entry != nullptr;
}

void MemorySource::mark_installed_all(bool on) {
    for (auto& [name, entry] : files_) entry.installed = on;
}

void MemorySource::mark_installed(const fs::path& p, bool on) {
    if (Entry* const entry = find(p)) entry->installed = on;
}

int MemorySource::is_installed(const fs::path& p) {
    const Entry* const entry = find(p);
    if (entry == nullptr) return 0;
    return entry->installed ? 2 : 1;
}

SFsFile* MemorySource::open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    ++reads_asked;
    read_flags = flags;
    const Entry* const entry = find(p);
    if (entry == nullptr || refuses_to_open) return nullptr;
    return new MemoryFile(this, full_name(p).c_str(), entry->bytes, 0);
}

SFsFile* MemorySource::open_at(const fs::path& p, bool truncate, bool at_end, FFSOpenFlags::FLAGS flags) {
    open_flags.push_back(flags);
    const Entry* const entry = find(p);
    if (entry != nullptr && write_failure != EFSError::NONE) fs::refuse(write_failure, p.FileName(), "As ordered.");
    if (entry == nullptr || refuses_to_open || is_silent || entry->read_only || write_failure != EFSError::NONE)
        return nullptr;
    if (truncate) entry->bytes->clear();
    auto* const file = new MemoryFile(this, full_name(p).c_str(), entry->bytes, at_end ? entry->bytes->size() : 0);
    file->capacity = file_capacity;
    return file;
}

SFsFile* MemorySource::open_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_at(p, true, false, flags);
}
SFsFile* MemorySource::open_append(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_at(p, false, true, flags);
}
SFsFile* MemorySource::open_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_at(p, false, false, flags);
}

SFsFile* MemorySource::create(const char* how, const fs::path& p, FFSOpenFlags::FLAGS flags) {
    made.push_back(how + (" " + full_name(p)));
    if (!is_writable || refuses_to_open) return nullptr;
    write_failure = EFSError::NONE;
    fs::path lower = p;
    lower.Lowercase();
    add(full_name(lower), "");
    return open_at(lower, true, false, flags);
}

SFsFile* MemorySource::create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create("create_write", p, flags);
}
SFsFile* MemorySource::create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create("create_read_write", p, flags);
}

bool MemorySource::mkdir(const fs::path& p) {
    made.push_back(std::string("mkdir ") + p.PathName());
    tree.add_path(lowered(p.PathName()).c_str());
    return is_writable;
}

void MemorySource::rem_dir(const fs::path& p) {
    const std::string directory = p.PathName();
    std::erase_if(files_, [&](const auto& file) { return file.first.starts_with(directory); });
    tree.remove(directory.c_str());
}

bool MemorySource::rem_file(const fs::path& p) {
    Entry* const entry = find(p);
    if (refuses_to_remove) return false;
    return entry != nullptr && !entry->read_only && files_.erase(held_name(p)) != 0;
}

FS_NAME* MemorySource::get_file_list(const char* dir, const char* mask, bool flag) {
    FS_NAME* names = nullptr;  // the newest first: no order that a search could rely on
    for (const auto& [name, entry] : files_) {
        const std::string_view directory = directory_of(name);
        const std::string_view file = std::string_view(name).substr(directory.size());
        if (!fs::directory_answers(directory, dir, flag) || !fs::name_matches(file, mask)) continue;
        for (int i = 0; i <= (lists_twice ? 1 : 0); ++i) names = fs::new_name(directory, file, names);
    }
    return names;
}

FS_NAME* MemorySource::search_substring(const char* text) {
    FS_NAME* names = nullptr;
    for (const auto& [name, entry] : files_) {
        if (directory_of(name).find(text) != std::string_view::npos) names = fs::new_name("", name, names);
    }
    return names;
}

MemorySource* mount_memory(const char* mount_path, EFSSourceType::TYPE type, FFSAddSourceFlags::ENUM flags) {
    auto* const source = new MemorySource(mount_path, type, flags);
    fs::add_source(source, flags);
    return source;
}

void unmount_all() { fs::registry::destroy_all(); }

std::vector<std::string> take_names(FS_NAME* names) {
    std::vector<std::string> out;
    for (const FS_NAME* name = names; name != nullptr; name = name->next) out.emplace_back(name->name);
    fs::free_names(names);
    return out;
}

}  // namespace test
