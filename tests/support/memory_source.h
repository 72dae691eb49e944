#pragma once

#include <engine/filesystem/contract.h>
#include <engine/filesystem/registry.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/registry.h"

namespace test {

using Bytes = std::shared_ptr<std::string>;

/// One write as a disk would see it.
struct Write {
    std::uint64_t offset;
    std::string bytes;
};

/// What writes go to.
struct Medium {
    std::uint64_t capacity = ~std::uint64_t{0};  // of each file, which then ends as on a full disk
    std::vector<Write>* writes = nullptr;        // where they are noted
    bool loses_at_close = false;                 // and tells of it
};

/// An open file over bytes that live as long as somebody uses them.
class MemoryFile : public SFsFile, public Medium {
public:
    MemoryFile(CFSSource* owner, const std::string& file_name, Bytes bytes, std::uint64_t position)
        : bytes_(std::move(bytes)), position_(position) {
        source = owner;
        name = fs::joined_name(file_name, "");
    }

    std::uint64_t read(void* buffer, std::uint64_t size) override {
        if (position_ >= bytes_->size()) return 0;
        const std::uint64_t count = bytes_->copy(static_cast<char*>(buffer), size, position_);
        position_ += count;
        return count;
    }
    std::uint64_t write(const void* buffer, std::uint64_t size) override {
        const std::uint64_t count = std::min(size, capacity > position_ ? capacity - position_ : 0);
        if (bytes_->size() < position_ + count) bytes_->resize(position_ + count);
        std::memcpy(bytes_->data() + position_, buffer, count);
        if (writes != nullptr) writes->push_back({position_, {static_cast<const char*>(buffer), count}});
        position_ += count;
        return count;
    }
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override {
        const std::uint64_t base = origin == EFSSeek::CURRENT ? position_ : bytes_->size();
        position_ = (origin == EFSSeek::BEGIN ? 0 : base) + static_cast<std::uint64_t>(offset);
        return true;
    }
    std::uint64_t length() override { return bytes_->size(); }
    std::uint64_t tell() override { return position_; }

    ~MemoryFile() override {
        if (loses_at_close) fs::set_error(EFSError::DISK_FULL, name, "The last bytes are lost.");
    }

private:
    Bytes bytes_;
    std::uint64_t position_;
};

/// A source such as a caller of the library might write: files in a map, by full lower-case name. What it is asked is
/// noted, and everything about it can be set.
class MemorySource : public fs::ReadOnlySource, public Medium {
public:
    explicit MemorySource(const char* mount_path, EFSSourceType::TYPE type = EFSSourceType::DIR,
                          FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE)
        : type_(type) {
        ReadOnlySource::init(fs::path(mount_path, true), flags, nullptr);
    }

    void add(const std::string& name, const std::string& content) {
        files_[name].bytes = std::make_shared<std::string>(content);
        tree.add_path(std::string(directory_of(name)).c_str());
    }
    /// The content of a file; "(none)" when it is not held.
    std::string content(const std::string& name) const {
        const auto found = files_.find(name);
        return found != files_.end() ? *found->second.bytes : "(none)";
    }

    bool is_writable = true;
    bool is_shielding = false;
    bool matches_by_end = false;  // a name without a directory finds the first file of that name, wherever it lies
    EFSError::TYPE write_failure = EFSError::NONE;  // of every open for writing, which it then stores
    bool refuses_to_remove = false;
    fs::dir tree;
    std::vector<std::string> refreshed;           // directories, or "everything"
    std::vector<std::string> made;                // "create_write NAME", "mkdir DIR" and the like, in the caller's case
    std::vector<FFSOpenFlags::FLAGS> open_flags;  // of every open that was asked for writing

    void refresh_dir(const char* dir) override { refreshed.emplace_back(dir); }
    void refresh() override { refreshed.emplace_back("everything"); }
    bool writable() override { return is_writable; }
    EFSSourceType::TYPE type() override { return type_; }
    bool is_protected() override { return is_shielding; }
    bool exists(const fs::path& p) override { return find(p) != nullptr; }
    void full_path(fs::path& out, const fs::path& p) override {
        const std::string directory = std::string(path().PathName()) + p.PathName();
        if (find(p) != nullptr) out.Set(directory.c_str(), p.FileName(), true);
    }
    void root_path(fs::path& out, const fs::path& p) override {
        if (find(p) != nullptr) out = fs::path(held_name(p).c_str(), true);
    }
    std::int64_t write_time(const fs::path& p) override { return find(p) != nullptr ? find(p)->time : -1; }
    bool set_write_time(const fs::path& p, std::int64_t time) override {
        return exists(p) && (find(p)->time = time, true);
    }
    bool read_only(const fs::path& p) override { return exists(p) && find(p)->read_only; }
    bool set_read_only(const fs::path& p, bool on) override { return exists(p) && (find(p)->read_only = on, true); }

    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS) override {
        return exists(p) ? new MemoryFile(this, full_name(p), find(p)->bytes, 0) : nullptr;
    }
    SFsFile* open_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override {
        SFsFile* const file = open_at(p, false, flags);
        if (file != nullptr) find(p)->bytes->clear();
        return file;
    }
    SFsFile* open_append(const fs::path& p, FFSOpenFlags::FLAGS flags) override { return open_at(p, true, flags); }
    SFsFile* open_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override { return open_at(p, false, flags); }
    SFsFile* create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override {
        return create("create_write ", p, flags);
    }
    SFsFile* create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) override {
        return create("create_read_write ", p, flags);
    }
    bool mkdir(const fs::path& p) override {
        made.push_back(std::string("mkdir ") + p.PathName());
        tree.add_path(fs::lower_case(p).PathName());
        return is_writable;
    }
    void rem_dir(const fs::path& p) override {
        std::erase_if(files_, [&](const auto& file) { return file.first.starts_with(p.PathName()); });
        tree.remove(p.PathName());
    }
    bool rem_file(const fs::path& p) override {
        return !refuses_to_remove && exists(p) && !read_only(p) && files_.erase(held_name(p)) != 0;
    }

    FS_NAME* get_file_list(const char* dir, const char* mask, bool recursive) override {
        FS_NAME* names = nullptr;  // the newest first: no order that a search could rely on
        for (const auto& [name, entry] : files_) {
            const std::string_view directory = directory_of(name);
            const std::string_view file = std::string_view(name).substr(directory.size());
            if (fs::directory_answers(directory, dir, recursive) && fs::name_matches(file, mask))
                names = fs::new_name(directory, file, names);
        }
        return names;
    }
    fs::dir* dir_tree() override { return &tree; }

private:
    struct Entry {
        Bytes bytes;
        bool read_only = false;
        std::int64_t time = 0;
    };

    static std::string_view directory_of(const std::string& name) {
        return std::string_view(name).substr(0, name.rfind('/') + 1);
    }

    Entry* find(const fs::path& p) {
        const auto found = files_.find(held_name(p));
        return found != files_.end() ? &found->second : nullptr;
    }
    std::string held_name(const fs::path& p) const {
        std::string name = full_name(p);
        if (!matches_by_end || !p.EmptyPath() || files_.contains(name)) return name;
        for (const auto& [held, entry] : files_) {
            if (held == name || held.ends_with('/' + name)) return held;
        }
        return name;
    }

    SFsFile* open_at(const fs::path& p, bool at_end, FFSOpenFlags::FLAGS flags) {
        open_flags.push_back(flags);
        const Entry* const entry = find(p);
        if (entry != nullptr && write_failure != EFSError::NONE) fs::refuse(write_failure, p.FileName(), "As ordered.");
        if (entry == nullptr || entry->read_only || write_failure != EFSError::NONE) return nullptr;
        auto* const file = new MemoryFile(this, full_name(p), entry->bytes, at_end ? entry->bytes->size() : 0);
        static_cast<Medium&>(*file) = *this;
        return file;
    }
    SFsFile* create(const char* how, const fs::path& p, FFSOpenFlags::FLAGS flags) {
        made.push_back(how + full_name(p));
        if (!is_writable) return nullptr;
        write_failure = EFSError::NONE;
        const fs::path lower = fs::lower_case(p);
        add(full_name(lower), "");
        return open_write(lower, flags);
    }

    const EFSSourceType::TYPE type_;
    std::map<std::string, Entry> files_;
};

/// Registers a new source and keeps only a pointer to it.
inline MemorySource* mount_memory(const char* mount_path, EFSSourceType::TYPE type = EFSSourceType::DIR,
                                  FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE) {
    auto* const source = new MemorySource(mount_path, type, flags);
    fs::add_source(source, flags);
    return source;
}

/// Takes every source out of the registry and destroys it, whether it was started or not.
inline void unmount_all() { fs::registry::destroy_all(); }

/// The names of a list, which is freed.
inline std::vector<std::string> take_names(FS_NAME* names) {
    std::vector<std::string> out;
    for (const FS_NAME* name = names; name != nullptr; name = name->next) out.emplace_back(name->name);
    fs::free_names(names);
    return out;
}

}  // namespace test
