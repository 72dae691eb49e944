#include "engine/filesystem/sources/startup.h"

#include <functional>
#include <new>
#include <optional>
#include <utility>

#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/contract/locating_source.h>
#include <engine/filesystem/contract/native_source.h>
#include <engine/filesystem/contract/placed_source.h>
#include <engine/filesystem/contract/whole_names.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/holders.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/paths.h"
#include "engine/filesystem/watch/watching.h"
#include "engine/kernel/text.h"

namespace fs {

namespace {

using Flags = FFSOpenFlags::FLAGS;
using registry::Match;

/// A directory below `lead` (which ends in "/"), without it.
std::optional<std::string_view> below(std::string_view dir, std::string_view lead) {
    if (dir.size() < lead.size() || !kernel::equal_folded(dir.substr(0, lead.size()), lead)) return std::nullopt;
    return dir.substr(lead.size());
}

fs::path with_directory(std::string_view dir, const fs::path& name) {
    return path_of(dir, name.FileName(), name.IsLowercase());
}

class PrefixedSource : public CFSSource,
                       public LocatingSource,
                       public PlacedSource,
                       public WholeNames,
                       public FollowedSource,
                       public registry::PrefixedNames {
public:
    PrefixedSource(std::unique_ptr<CFSSource> inner, std::string_view prefix)
        : inner_(std::move(inner)), prefix_(std::string(prefix) + '/') {}

    std::string_view prefix() const override { return prefix_; }

    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, dir_listing* listing) override {
        return inner_->init(root, flags, listing) && follow();
    }
    void clear() override { inner_->clear(), follow(); }
    void refresh() override { inner_->refresh(), follow(); }
    void refresh_dir(const char* dir) override {
        guarded(dir, [&] {
            const auto inside = below(std::string(dir) + '/', prefix_);
            inner_->refresh_dir(inside ? std::string(inside->substr(0, inside->rfind('/'))).c_str() : "");
            follow();
        });
    }

    std::unique_ptr<Follower> make_follower() override {
        auto* const followed = dynamic_cast<FollowedSource*>(inner_.get());
        return followed != nullptr ? followed->make_follower() : nullptr;
    }
    std::function<void()> read_anew() override {
        auto* const followed = dynamic_cast<FollowedSource*>(inner_.get());
        std::function<void()> take_up = followed != nullptr ? followed->read_anew() : [this] { inner_->refresh(); };
        if (!take_up) return {};
        return [this, take_up = std::move(take_up)] { take_up(), follow(); };
    }
    void follow_tree() override {
        fs::dir* const tree = inner_->dir_tree();
        const bool has_lead = (inner_->flags() & FFSAddSourceFlags::MOUNT_PARENT) != 0 && tree != nullptr;
        fs::dir fresh;
        fs::dir* const place = fresh.add_path((prefix_ + (has_lead ? tree->name() : "")).c_str());
        if (place == nullptr || (tree != nullptr && !place->merge(*tree))) throw std::bad_alloc();
        tree_.clear();
        tree_.take_over(fresh);
    }

    const fs::path& path() override { return inner_->path(); }
    // The tree shows what leads every name.
    FFSAddSourceFlags::ENUM flags() override { return inner_->flags() & ~FFSAddSourceFlags::MOUNT_PARENT; }
    EFSSourceType::TYPE type() override { return inner_->type(); }
    bool writable() override { return inner_->writable(); }
    bool is_protected() override { return inner_->is_protected(); }
    fs::dir* dir_tree() override { return &tree_; }

    bool exists(const fs::path& p) override {
        return ask(p, false, [](auto&, auto&) { return true; });
    }
    bool exists_whole(const fs::path& p) override {
        return guarded(p.FileName(), false, [&] { return find(p, Match::WHOLE).has_value(); });
    }
    void full_path(fs::path& out, const fs::path& p) override {
        out = ask(p, fs::path(), [](CFSSource& inner, const fs::path& name) {
            fs::path full;
            inner.full_path(full, name);
            return full;
        });
    }
    void root_path(fs::path& out, const fs::path& p) override {
        out = ask(p, fs::path(), [&](CFSSource& inner, const fs::path& name) {
            fs::path held;
            if (registry::holds_whole(inner, name) && !is_native_directory_name(name.PathNameView())) held = name;
            if (held.Empty()) inner.root_path(held, name);
            return held.Empty() ? held : with_directory(prefix_ + held.PathName(), held);
        });
    }
    std::uint64_t place(const fs::path& p) override {
        return ask(p, std::uint64_t{0}, [](CFSSource& inner, const fs::path& name) {
            auto* const placed = dynamic_cast<PlacedSource*>(&inner);
            return placed != nullptr ? placed->place(name) : 0;
        });
    }

    std::int64_t write_time(const fs::path& p) override { return ask(p, std::int64_t{-1}, &CFSSource::write_time); }
    bool set_write_time(const fs::path& p, std::int64_t time) override {
        return ask(p, false, [=](auto& inner, auto& name) { return inner.set_write_time(name, time); });
    }
    bool read_only(const fs::path& p) override { return ask(p, false, &CFSSource::read_only); }
    bool set_read_only(const fs::path& p, bool on) override {
        return ask(p, false, [=](auto& inner, auto& name) { return inner.set_read_only(name, on); });
    }
    void mark_installed_all(bool on) override { inner_->mark_installed_all(on); }
    void mark_installed(const fs::path& p, bool on) override {
        ask(p, false, [=](auto& inner, auto& name) { return inner.mark_installed(name, on), true; });
    }
    int is_installed(const fs::path& p) override { return ask(p, 0, &CFSSource::is_installed); }

    SFsFile* open_read(const fs::path& p, Flags flags) override { return open(p, flags, &CFSSource::open_read); }
    SFsFile* open_write(const fs::path& p, Flags flags) override { return open(p, flags, &CFSSource::open_write); }
    SFsFile* open_append(const fs::path& p, Flags flags) override { return open(p, flags, &CFSSource::open_append); }
    SFsFile* open_read_write(const fs::path& p, Flags flags) override {
        return open(p, flags, &CFSSource::open_read_write);
    }
    Answer locate(const fs::path& p, Flags flags, Located& out) override {
        auto* const locating = dynamic_cast<LocatingSource*>(inner_.get());
        if (locating == nullptr) return Answer::OPEN_READ;
        return ask(
            p, Answer::NOT_HELD, [&](auto&, auto& name) { return locating->locate(name, flags, out); }, flags);
    }
    SFsFile* open_located(const fs::path& p, Flags flags, const Located& found) override {
        return dynamic_cast<LocatingSource&>(*inner_).open_located(p, flags, found);
    }

    SFsFile* create_write(const fs::path& p, Flags flags) override {
        return create(p, flags, &CFSSource::create_write);
    }
    SFsFile* create_read_write(const fs::path& p, Flags flags) override {
        return create(p, flags, &CFSSource::create_read_write);
    }
    bool mkdir(const fs::path& p) override {
        return change(p, false, [](auto& inner, const auto& name) { return name.Empty() || inner.mkdir(name); });
    }
    void rem_dir(const fs::path& p) override {
        guarded(p.PathName(), [&] {
            inner_->rem_dir(strip_or_refuse(p));
            follow();
        });
    }
    bool rem_file(const fs::path& p) override { return ask(p, false, &CFSSource::rem_file); }

    FS_NAME* get_file_list(const char* dir, const char* mask, bool recursive) override {
        return list(dir, mask, [=](std::string_view held) { return directory_answers(held, dir, recursive); });
    }
    FS_NAME* search_substring(const char* text) override {
        if (text == nullptr || *text == '\0') return nullptr;
        return list(text, nullptr, [=](std::string_view held) { return directory_contains(held, text); });
    }
    void dump(ztl::vector<fs::string>& lines, const char* ext) override { inner_->dump(lines, ext); }

protected:
    /// The name within the inner source of one that begins with all of the prefix.
    std::optional<fs::path> strip(const fs::path& p) const {
        const auto inside = below(p.PathNameView(), prefix_);
        return inside ? std::optional(with_directory(*inside, p)) : std::nullopt;
    }
    fs::path strip_or_refuse(const fs::path& p) const {
        if (const auto name = strip(p)) return *name;
        set_error(EFSError::INVALID_NAME, p.FileName(), "The names of this source begin with " + prefix_);
        throw StoredFailure();
    }

    struct Asked {
        fs::path name;
        bool is_whole = false;  // no other file that ends so
    };
    /// What the inner source is asked for `p`, if it holds that: where `p` spells out an end of the prefix, a file of just
    /// the rest; else, unless it is to match as a whole, what it finds by the end.
    std::optional<Asked> find(const fs::path& p, Match match = Match::AS_SOURCE_DOES) {
        const bool whole = match == Match::WHOLE;
        std::string_view lead = prefix_;
        do {
            if (const auto inside = below(p.PathNameView(), lead)) {
                const fs::path rest = with_directory(*inside, p);
                // A full path, where the inner source stands on the disk, is the name of the file alone.
                if (registry::holds_whole(*inner_, rest))
                    return Asked{with_directory(inner_->root_dir() + std::string(rest.PathNameView()), rest), true};
            }
            lead.remove_prefix(1);  // directories match by their ends letter by letter
        } while (!whole && !lead.empty());
        if (is_native_directory_name(p.PathNameView()) ? registry::holds(*inner_, p, match)
                                                       : !whole && matches_by_end(p))
            return Asked{p};
        return std::nullopt;
    }

    template <typename Result, typename Use>
    Result ask(const fs::path& p, Result missing, Use use, Flags flags = FFSOpenFlags::NONE) {
        return guarded(p.FileName(), missing, [&]() -> Result {
            const auto asked = find(p, registry::match_of(flags));
            return asked ? std::invoke(use, *inner_, asked->name) : missing;
        });
    }

    /// For what makes names: `use(inner, name)`, and the tree has their directory.
    template <typename Result, typename Use>
    Result change(const fs::path& p, Result failure, Use use) {
        return guarded(p.FileName(), failure, [&]() -> Result {
            fs::dir fresh;
            if (fresh.add_path(lower_text(p.PathNameView()).c_str()) == nullptr) throw std::bad_alloc();
            const Result result = use(*inner_, strip_or_refuse(p));
            if (result) tree_.take_over(fresh);
            return result;
        });
    }

    /// Makes the tree anew from the inner source's. False, with the failure stored, without memory.
    bool follow() {
        return guarded(prefix_.c_str(), false, [&] { return follow_tree(), true; });
    }

private:
    /// Whether what the inner source finds is found by the whole of its name here, too.
    bool matches_by_end(const fs::path& p) {
        if (!inner_->exists(p)) return false;
        fs::path held;
        inner_->root_path(held, p);
        const std::string dir = prefix_ + held.PathName();
        const std::string asked = lower_text(p.PathNameView());
        return dir.ends_with(asked) || asked.ends_with(dir);
    }

    using Open = SFsFile* (CFSSource::*)(const fs::path& p, Flags flags);

    SFsFile* open(const fs::path& p, Flags flags, Open how) {
        return guarded<SFsFile*>(p.FileName(), nullptr, [&]() -> SFsFile* {
            const auto asked = find(p, registry::match_of(flags));
            if (!asked) return nullptr;
            return (*inner_.*how)(asked->name, asked->is_whole ? flags | FFSOpenFlags::WHOLE_NAME : flags);
        });
    }
    SFsFile* create(const fs::path& p, Flags flags, Open how) {
        return change<SFsFile*>(p, nullptr, [&](auto& inner, const auto& name) { return (inner.*how)(name, flags); });
    }

    template <typename Wanted>
    FS_NAME* list(const char* asked, const char* mask, Wanted wanted) {
        return guarded<FS_NAME*>(asked, nullptr, [&] {
            const NameList all(inner_->get_file_list(nullptr, mask, false));
            NameList found;
            for (const FS_NAME* item = all.get(); item != nullptr; item = item->next) {
                const std::string name = prefix_ + item->name;
                const std::size_t split = name.rfind('/') + 1;
                if (wanted(std::string_view(name).substr(0, split))) prepend(found, "", name);
            }
            return found.release();
        });
    }

    const std::unique_ptr<CFSSource> inner_;
    const std::string prefix_;
    fs::dir tree_;
};

/// The same over a source that stands on the disk.
class PrefixedNativeSource final : public PrefixedSource, public NativeSource {
public:
    PrefixedNativeSource(std::unique_ptr<CFSSource> inner, NativeSource& native, std::string_view prefix)
        : PrefixedSource(std::move(inner), prefix), native_(native) {}

    bool rename_file(const fs::path& from, const fs::path& to) override {
        return change(to, false, [&](CFSSource&, const fs::path& new_name) {
            const auto old_name = find(from);
            return native_.rename_file(old_name ? old_name->name : from, new_name);
        });
    }
    bool native_path(const fs::path& p, char* out, std::size_t capacity) override {
        return guarded(p.FileName(), false, [&] {
            const auto held = find(p);
            const std::optional<fs::path> name = held ? held->name : strip(p);
            return name && native_.native_path(*name, out, capacity);
        });
    }
    bool add_file(const fs::path& p, const std::function<bool()>& place) override {
        return change(p, false, [&](CFSSource&, const fs::path& name) { return native_.add_file(name, place); });
    }
    std::uint32_t unlisted_directories() override { return native_.unlisted_directories(); }

private:
    NativeSource& native_;
};

}  // namespace

std::unique_ptr<CFSSource> make_prefixed(std::unique_ptr<CFSSource> inner, std::string_view prefix) {
    if (auto* const native = dynamic_cast<NativeSource*>(inner.get()))
        return std::make_unique<PrefixedNativeSource>(std::move(inner), *native, prefix);
    return std::make_unique<PrefixedSource>(std::move(inner), prefix);
}

}  // namespace fs
