// A pack source: a zip file whose directory is read once, when it is mounted, into a table that never changes (table.h).
// Its bytes are reached through one store (store.h), and an open file decodes its entry in blocks of 32 KiB
// (decoded_reader.h) or, when it is read whole, in one go (whole_decoders.h).
//
// The invariant: whichever way the bytes of an entry come, a caller sees what the block decoder would give, in results,
// positions and failures.

#include <engine/filesystem/sources/pack.h>

#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/sources/pack/follower.h"
#include "engine/platform/directories.h"
#include "engine/platform/threads.h"

namespace {

constexpr std::uint32_t none = fs::NameTable::none;

}  // namespace

struct CZip_dir::State {
    /// The file's number by the end of its directory, or, `whole`, by all of it; none when there is no such file.
    std::uint32_t find(const fs::path& p, bool whole = false) const {
        if (!archive) return none;
        const auto find_lower = [&names = archive->table().names, whole](std::string_view dir, std::string_view name) {
            return whole ? names.find_exact(dir, name) : names.find(dir, name);
        };
        return p.IsLowercase() ? find_lower(p.PathNameView(), p.FileNameView())
                               : find_lower(fs::lower_text(p.PathNameView()), fs::lower_text(p.FileNameView()));
    }

    /// The names of the files that answer, the last of the table first. What would not fit into a host's buffers of 260
    /// bytes is not listed, though it can be opened.
    template <class Answers>
    FS_NAME* list(Answers answers) const {
        const fs::NameTable& names = archive->table().names;
        fs::NameList found;
        for (std::uint32_t file = names.first(); file != none; file = names.next(file)) {
            const std::string_view dir = names.dir(file);
            const std::string_view name = names.name(file);
            if (dir.size() + name.size() < fs::path_capacity && answers(dir, name)) fs::prepend(found, dir, name);
        }
        return found.release();
    }

    std::shared_ptr<fs::PackArchive> archive;  // null until init has succeeded
    std::string native_spelling;
    std::shared_ptr<fs::pack_reader> reader;  // null for a pack of the disk
    platform::Mutex tree_lock;                // guards the first filling of `tree`
    fs::dir tree;
    bool tree_wanted = false;  // dir_tree was asked for
};

CZip_dir::CZip_dir() : state_(std::make_unique<State>()) {}
CZip_dir::~CZip_dir() = default;

void CZip_dir::set_native_spelling(const char* native_path) {
    state_->native_spelling = native_path ? native_path : "";
}

void CZip_dir::set_reader(std::shared_ptr<fs::pack_reader> reader) { state_->reader = std::move(reader); }

bool CZip_dir::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) {
    clear();
    ReadOnlySource::init(root, flags, listing);
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
        auto origin =
            state_->reader ? fs::PackOrigin::reader(native_path, state_->reader) : fs::PackOrigin::file(native_path);
        if (!store.open(native_path, std::move(origin), fs::has_any(flags, FFSAddSourceFlags::PACK_IN_MEMORY)))
            return false;
        auto archive = fs::PackArchive::mount(std::move(store));
        if (state_->tree_wanted) archive->fill_tree(state_->tree);
        state_->archive = std::move(archive);
        return true;
    });
}

std::unique_ptr<fs::Follower> CZip_dir::make_follower() {
    char spelled[platform::path_buffer_size];
    if (!state_->archive || state_->reader || !platform::resolve_case(state_->archive->store().path().c_str(), spelled))
        return nullptr;
    return std::make_unique<fs::PackFollower>(spelled);
}

std::function<void()> CZip_dir::read_anew() {
    std::shared_ptr<fs::PackArchive> before;
    {
        const fs::registry::SharedGuard guard;
        before = state_->archive;
    }
    if (!before || state_->reader) return [] {};  // what a host reads never changes
    fs::PackStore store;
    if (!store.open_anew(before->store(), fs::has_any(flags(), FFSAddSourceFlags::PACK_IN_MEMORY))) return {};
    auto archive = fs::PackArchive::mount(std::move(store));
    return [this, archive] {
        fs::dir tree;
        if (state_->tree_wanted) archive->fill_tree(tree);
        state_->archive = archive;
        state_->tree.clear();
        state_->tree.take_over(tree);
    };
}

void CZip_dir::clear() {
    state_->archive.reset();
    state_->tree.clear();
}

EFSSourceType::TYPE CZip_dir::type() { return EFSSourceType::PACK; }
std::int64_t CZip_dir::write_time(const fs::path& /*p*/) { return 0; }

/// Few ask for the tree, and for a pack with many directories it is a large part of mounting: so it is made for the first
/// who does, and from then on by init, since a caller may have kept it.
fs::dir* CZip_dir::dir_tree() {
    const std::lock_guard guard(state_->tree_lock);
    const char* pack = state_->archive ? state_->archive->store().path().c_str() : "";
    if (!state_->tree_wanted && state_->archive)
        fs::guarded(pack, [this] { state_->archive->fill_tree(state_->tree); });
    state_->tree_wanted = true;
    return &state_->tree;
}

bool CZip_dir::exists(const fs::path& p) { return state_->find(p) != none; }
bool CZip_dir::exists_whole(const fs::path& p) { return state_->find(p, true) != none; }

std::uint64_t CZip_dir::place(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    return file != none ? state_->archive->table().entry(file).header_offset : 0;
}

void CZip_dir::root_path(fs::path& out, const fs::path& p) {
    out.Release();
    fs::guarded(p.FileName(), [&] {
        const std::uint32_t file = state_->find(p);
        if (file != none) out = fs::path(state_->archive->full_name(file).c_str(), true);
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

FS_NAME* CZip_dir::get_file_list(const char* dir, const char* mask, bool flag) {
    if (!state_->archive) return nullptr;
    return fs::guarded(dir, static_cast<FS_NAME*>(nullptr), [&] {
        const std::string folded_dir = fs::lower_text(dir ? dir : "");
        return state_->list([&](std::string_view held_dir, std::string_view name) {
            return fs::directory_answers(held_dir, dir ? folded_dir.c_str() : nullptr, flag) &&
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
