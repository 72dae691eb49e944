// A pack source: a zip file whose directory is read once, when it is mounted, into a table that never changes
// (table.cpp). Its bytes are reached through one store (store.h), and an open file decodes its entry in blocks of 32 KiB
// (reader.cpp) or, when it is read whole, in one go (archive.cpp).
//
// The invariant: whichever way the bytes of an entry come, a caller sees what the block decoder would give, in results,
// positions and failures.

#include <engine/filesystem/sources/pack.h>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/watch/watching.h"
#include "engine/kernel/bytes.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"
#include "engine/platform/threads.h"

namespace {

constexpr std::uint32_t none = fs::NameTable::none;

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

/// Follows the file of a pack, through the directory that it lies in: whatever becomes of it is one LOST.
class PackFollower final : public fs::Follower {
public:
    explicit PackFollower(const std::string& native_path)
        : directory_(native_path, 0, native_path.rfind('/') + 1), name_(native_path, native_path.rfind('/') + 1) {}

    bool begin(fs::Watches& watches) override {
        watch_ = watches.add(directory_.c_str(), true, *this, directory_);
        return watch_ != nullptr;
    }
    void note(const std::string& /*dir*/, const platform::WatchEvent& event, std::int64_t now) noexcept override {
        if (!event.name.empty() && !kernel::equal_folded(event.name, name_)) return;
        touches_ = {.first = is_touched_ ? touches_.first : now, .last = now};
        is_touched_ = true;
    }
    bool is_marked() const override { return is_touched_; }
    bool prepare(std::int64_t now, std::int64_t quiet) override {
        is_due_ = is_touched_ && touches_.are_over(now, quiet);
        return true;
    }
    bool is_prepared() const override { return is_due_; }
    void apply(fs::ChangeBatch& batch) override {
        batch.add_lost();
        is_touched_ = is_due_ = false;
    }

private:
    const std::string directory_;
    const std::string name_;
    fs::Watches::Watch watch_;
    fs::Touches touches_;
    bool is_touched_ = false;
    bool is_due_ = false;
};

}  // namespace

struct CZip_dir::State {
    /// The file's number by the end of its directory, or, `whole`, by all of it; none when there is no such file, or,
    /// with the failure stored, no memory.
    std::uint32_t find(const fs::path& p, bool whole = false) const {
        if (!archive) return none;
        const auto find_lower = [&names = archive->table.names, whole](std::string_view dir, std::string_view name) {
            return whole ? names.find_exact(dir, name) : names.find(dir, name);
        };
        if (p.IsLowercase()) return find_lower(p.PathNameView(), p.FileNameView());
        return fs::guarded(p.FileName(), none, [&] {
            return find_lower(fs::lower_text(p.PathNameView()), fs::lower_text(p.FileNameView()));
        });
    }

    /// The names of the files that answer, the last of the table first. What would not fit into a host's buffers of 260
    /// bytes is not listed, though it can be opened.
    template <class Answers>
    FS_NAME* list(Answers answers) const {
        const fs::NameTable& names = archive->table.names;
        fs::NameList found;
        for (std::uint32_t file = names.first(); file != none; file = names.next(file)) {
            const std::string_view dir = names.dir(file);
            const std::string_view name = names.name(file);
            if (dir.size() + name.size() < fs::path_capacity && answers(dir, name)) fs::prepend(found, dir, name);
        }
        return found.release();
    }

    /// Shows what is in the archive. May throw std::bad_alloc, and then changes nothing.
    void take_up(std::shared_ptr<fs::PackArchive> mounted) {
        fs::dir fresh;
        if (tree_wanted) mounted->fill_tree(fresh);
        archive = std::move(mounted);
        tree.clear();
        tree.take_over(fresh);
    }

    std::shared_ptr<fs::PackArchive> archive;  // null until init has succeeded
    std::string native_spelling;
    std::shared_ptr<fs::pack_reader> reader;  // null for a pack of the disk
    platform::Mutex tree_lock;                // guards the first filling of `tree`
    fs::dir tree;
    bool tree_wanted = false;  // dir_tree was asked for, and answered
};

CZip_dir::CZip_dir() : state_(std::make_unique<State>()) {}
CZip_dir::~CZip_dir() = default;

void CZip_dir::set_native_spelling(const char* native_path) {
    state_->native_spelling = native_path ? native_path : "";
}

void CZip_dir::set_reader(std::shared_ptr<fs::pack_reader> reader) { state_->reader = std::move(reader); }

bool CZip_dir::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) {
    clear();
    if (!ReadOnlySource::init(root, flags, listing)) return false;
    char full_name[fs::path_capacity];
    if (!root.FullName(full_name, sizeof full_name))
        return fs::refuse(EFSError::INVALID_NAME, root.PathName(),
                          "The pack source refuses a path of more than 259 bytes.");
    if (std::string_view(full_name).find(".edat") != std::string_view::npos)
        return fs::refuse(EFSError::UNSUPPORTED, full_name,
                          "The pack source never serves a file with \".edat\" in its name.");
    const char* native_path = state_->native_spelling.empty() ? full_name : state_->native_spelling.c_str();
    return fs::guarded(native_path, false, [&] {
        fs::PackStore store;
        const bool in_memory = fs::has_any(flags, FFSAddSourceFlags::PACK_IN_MEMORY);
        if (!(state_->reader ? store.open_reader(native_path, state_->reader, in_memory)
                             : store.open_file(native_path, in_memory)))
            return false;
        state_->take_up(fs::PackArchive::mount(std::move(store)));
        return true;
    });
}

std::unique_ptr<fs::Follower> CZip_dir::make_follower() {
    char spelled[platform::path_buffer_size];
    if (!state_->archive || state_->reader || !platform::resolve_case(state_->archive->store.path().c_str(), spelled))
        return nullptr;
    return std::make_unique<PackFollower>(spelled);
}

std::function<void()> CZip_dir::read_anew() {
    std::shared_ptr<fs::PackArchive> before;
    {
        const fs::registry::SharedGuard guard;
        before = state_->archive;
    }
    if (!before || state_->reader) return [] {};  // what a host reads never changes
    fs::PackStore store;
    const bool in_memory = fs::has_any(flags(), FFSAddSourceFlags::PACK_IN_MEMORY);
    if (!store.open_file(before->store.path().c_str(), in_memory, &before->store)) return {};
    return [this, archive = fs::PackArchive::mount(std::move(store))] { state_->take_up(archive); };
}

void CZip_dir::clear() {
    state_->archive.reset();
    state_->tree.clear();
}

EFSSourceType::TYPE CZip_dir::type() { return EFSSourceType::PACK; }
std::int64_t CZip_dir::write_time(const fs::path& /*p*/) { return 0; }

/// Few ask for the tree, and for a pack with many directories it is a large part of mounting: so it is made for the
/// first who does, and from then on by init, since a caller may have kept it.
fs::dir* CZip_dir::dir_tree() {
    const std::lock_guard guard(state_->tree_lock);
    if (!state_->tree_wanted) {
        fs::guarded(path().PathName(), [this] {
            if (state_->archive) state_->archive->fill_tree(state_->tree);
            state_->tree_wanted = true;
        });
    }
    return &state_->tree;
}

bool CZip_dir::exists(const fs::path& p) { return state_->find(p) != none; }
bool CZip_dir::exists_whole(const fs::path& p) { return state_->find(p, true) != none; }

std::uint64_t CZip_dir::place(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    return file != none ? state_->archive->table.entry(file).header_offset : 0;
}

void CZip_dir::root_path(fs::path& out, const fs::path& p) {
    out.Release();
    fs::guarded(p.FileName(), [&] {
        const std::uint32_t file = state_->find(p);
        if (file != none) out = fs::path(state_->archive->table.names.path(file).c_str(), true);
    });
}

SFsFile* CZip_dir::open_read(const fs::path& p, FFSOpenFlags::FLAGS open_flags) {
    return fs::guarded(p.FileName(), static_cast<SFsFile*>(nullptr), [&]() -> SFsFile* {
        const std::uint32_t file = state_->find(p, fs::has_any(open_flags, FFSOpenFlags::WHOLE_NAME));
        if (file == none || !state_->archive->open(file)) return nullptr;
        const bool exact =
            fs::has_any(flags(), FFSAddSourceFlags::EXACT_SEEKS) || fs::has_any(open_flags, FFSOpenFlags::SEEKABLE);
        return new SZipFile(this, state_->archive, file, exact);
    });
}

FS_NAME* CZip_dir::get_file_list(const char* dir, const char* mask, bool recursive) {
    if (!state_->archive) return nullptr;
    return fs::guarded(dir, static_cast<FS_NAME*>(nullptr), [&] {
        const std::string folded_dir = fs::lower_text(dir ? dir : "");
        return state_->list([&](std::string_view held_dir, std::string_view name) {
            return fs::directory_answers(held_dir, dir ? folded_dir.c_str() : nullptr, recursive) &&
                   fs::name_matches(name, mask);
        });
    });
}

FS_NAME* CZip_dir::search_substring(const char* text) {
    if (!state_->archive || !text || *text == '\0') return nullptr;
    return fs::guarded(text, static_cast<FS_NAME*>(nullptr), [&] {
        const std::string wanted = fs::lower_text(text);
        return state_->list([&](std::string_view dir, auto&) { return fs::directory_contains(dir, wanted); });
    });
}

bool fs::list_pack(const char* native_path, ztl::vector<SFsPackEntry>& out) {
    const char* path = native_path ? native_path : "";
    return guarded(path, false, [&] {
        PackStore store;
        ErrorScope scope;
        if (store.open_file(path, false)) {
            out = list_entries(store);
            return true;
        }
        const std::shared_ptr<const PackArchive> mounted = PackArchive::mounted_from(path);
        if (mounted == nullptr) return false;
        out = list_entries(mounted->store);
        scope.forget();
        return true;
    });
}

struct fs::PackView {
    platform::Mapping mapping;
};

// The blocks of a reader need not know of reads of whole entries: a good one reads the same by whichever way, and a
// damaged one is left to the blocks.

SZipFile::SZipFile(CFSSource* owner, std::shared_ptr<fs::PackArchive> archive, std::uint32_t entry, bool exact_seeks)
    : archive_(std::move(archive)), entry_(entry), exact_seeks_(exact_seeks) {
    source = owner;
    name = fs::joined_name(archive_->table.names.dir(entry), archive_->table.names.name(entry));
    if (!name) throw std::bad_alloc();
    size_ = archive_->table.entry(entry).size;
}

SZipFile::~SZipFile() = default;

std::uint64_t SZipFile::read(void* buffer, std::uint64_t size) {
    if (position_ > size_) return 0;
    const fs::DiskUse use("read", archive_->store.is_in_memory() ? nullptr : name);
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
    if (!whole || !archive_->whole_decoders.decode(archive_->store, data, buffer)) {
        if (!reader_) reader_ = fs::EntryReader::create(*archive_, entry_, exact_seeks_);
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
        if (is_through && crc_ != archive_->table.entry(entry_).crc) fault = fs::PackFault::CHECKSUM;
    }
    if (fault != fs::PackFault::NONE) report(fault);
    return delivered;
}

/// The caller's thread has the reason after every read that met it; the log gets one message for each open file.
void SZipFile::report(fs::PackFault fault) {
    const std::string& pack = archive_->store.path();
    const char* words = fault_words[static_cast<std::size_t>(fault)];
    if (!std::exchange(told_, true)) {
        log_message(messages, Log::ELevel::ERRR, __LINE__, "The entry '%s' of the pack '%s' cannot be read: %s.\n",
                    fs::file_name(this), pack.c_str(), words);
    }
    if (fault == fs::PackFault::IO) return;  // whoever asked for the bytes has told why
    fs::guarded(name, [&] {
        fs::set_error(EFSError::BAD_FORMAT, name,
                      "The entry of the pack \"" + pack + "\" cannot be read: " + words + ".");
    });
}

std::uint64_t SZipFile::write(const void* /*buffer*/, std::uint64_t /*size*/) { return 0; }

bool SZipFile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const std::uint64_t start = origin == EFSSeek::CURRENT ? position_ : origin == EFSSeek::END ? size_ : 0;
    position_ = start + static_cast<std::uint64_t>(offset);
    if (reader_) reader_->seek(position_);
    return true;
}

const void* SZipFile::view(std::uint64_t& size, bool populate) {
    const fs::PackStore& store = archive_->store;
    return fs::guarded<const void*>(name, nullptr, [&]() -> const void* {
        if (store.is_remote() || !archive_->locate(entry_)) return nullptr;
        const fs::PackedData data = archive_->data_of(entry_);
        size = data.size;
        if (data.method != EFSPackMethod::STORE || size == 0 || data.packed_size != size) return nullptr;
        if (const void* const bytes = store.view(data.offset, size)) return bytes;
        if (data.offset > store.length() || size > store.length() - data.offset) return nullptr;
        if (!view_) {
            std::unique_ptr<fs::PackView> made(new fs::PackView{store.map(data.offset, size)});
            if (made->mapping.IsEmpty()) return nullptr;
            view_ = std::move(made);
        }
        if (!populate || view_->mapping.Populate()) return view_->mapping.Data();
        fs::refuse_by_disk(store.path().c_str(), "cannot be mapped");
        return nullptr;
    });
}

std::uint64_t SZipFile::length() { return size_; }
std::uint64_t SZipFile::tell() { return position_; }
