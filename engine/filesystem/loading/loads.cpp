#include <engine/filesystem/loading.h>

#include <algorithm>
#include <memory>

#include <engine/filesystem/contract/viewable_file.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/loading/loader.h"

// The exported boundary of the room: loads, batches and views.

namespace fs {

namespace {

bool names_a_file(const SFsLoadWish& wish) {
    const bool is_named = wish.path != nullptr && wish.path[0] != '\0';
    return is_named || refuse(EFSError::INVALID_NAME, wish.path, "An empty path names no file.");
}

/// What a view's owner points to: the open file, and with it whatever the bytes lie in (the mapping, or the pack in memory),
/// or a copy.
struct Shown {
    FilePtr file;
    std::unique_ptr<void, FreeBlock> copy;
};

bool show(const char* path, SFsView& out, FFSMapFlags::ENUM flags) {
    auto shown = std::make_unique<Shown>();
    LoadWork work({.path = path});
    LoadWork::Step step = work.Next();  // opens the file
    if (step == LoadWork::Step::FAILED) return false;
    ErrorScope scope;
    SFsView view;
    if (auto* const viewable = dynamic_cast<ViewableFile*>(&work.File()))
        view.data = viewable->view(view.size, (flags & FFSMapFlags::POPULATE) != 0);
    view.is_mapped = view.data != nullptr;
    if (view.is_mapped) {
        shown->file = work.TakeFile();
    } else {
        if ((flags & FFSMapFlags::NO_COPY) != 0)
            return fail_unless_told(scope, EFSError::UNSUPPORTED, path,
                                    "The bytes of this file are not shown without a copy.");
        while (step != LoadWork::Step::DONE && step != LoadWork::Step::FAILED) step = work.Next();
        if (step == LoadWork::Step::FAILED) return false;
        scope.forget();
        view.size = work.Size();
        shown->copy.reset(work.TakeBlock());
        view.data = shown->copy.get();
    }
    out = view;
    out.owner = shown.release();
    return true;
}

}  // namespace

SFsLoad* load_async(const SFsLoadWish& wish) {
    return guarded<SFsLoad*>(wish.path, nullptr, [&]() -> SFsLoad* {
        if (!names_a_file(wish)) return nullptr;
        auto load = std::make_unique<Load>(wish, LoadClock::now());
        return Loader::Instance().Submit({load.get()}) ? load.release() : nullptr;
    });
}

SFsLoadBatch* load_batch(const SFsLoadWish* wishes, std::size_t count,
                         void (*callback)(SFsLoadBatch* batch, void* user), void* user) {
    return guarded<SFsLoadBatch*>(nullptr, nullptr, [&]() -> SFsLoadBatch* {
        if (wishes == nullptr || count == 0)
            return refuse(EFSError::INVALID_ARGUMENT, nullptr, "A batch without wishes loads nothing."), nullptr;
        if (!std::all_of(wishes, wishes + count, names_a_file)) return nullptr;
        auto batch = std::make_unique<LoadBatch>(count, callback, user);
        const auto now = LoadClock::now();
        for (std::size_t at = 0; at < count; ++at) batch->Add(wishes[at], now);
        return Loader::Instance().Submit(batch->InOrderOfPlace()) ? batch.release() : nullptr;
    });
}

void start_loads() {
    registry::set_removal_hook([](CFSSource& source) { Loader::Instance().Abandon(source); });
    Loader::Instance().Allow();
}

void stop_loads() { Loader::Instance().Stop(); }

void set_polled_callbacks(bool on) { Loader::Instance().SetPolled(on); }
std::uint32_t poll_loads(std::uint32_t most) { return Loader::Instance().Poll(most); }

bool set_load_settings(const SFsLoadSettings& settings) {
    return guarded(nullptr, false, [&] { return Loader::Instance().SetSettings(settings); });
}

void get_load_statistics(SFsLoadStatistics& out) { Loader::Instance().GetStatistics(out); }

bool map(const char* path, SFsView& out, FFSMapFlags::ENUM flags) {
    out = {};
    if (!names_a_file({.path = path})) return false;
    const DiskUse use("opened", path);
    return guarded(path, false, [&] { return show(path, out, flags); });
}

void unmap(SFsView& view) {
    delete static_cast<Shown*>(view.owner);
    view = {};
}

}  // namespace fs

using fs::Load;
using fs::LoadBatch;
using fs::Loader;

void SFsLoad::AddRef() { Load::Of(this).AddReference(); }
void SFsLoad::Release() { Loader::Instance().Release(Load::Of(this)); }
bool SFsLoad::Wait(std::uint32_t timeout_ms) {
    return Loader::Instance().Wait(timeout_ms, [&] { return Load::Of(this).IsFinished(); });
}
EFSRequestState::TYPE SFsLoad::State() const { return Load::Of(this).status.State(); }
EFSRequestResult::TYPE SFsLoad::Result() const { return Load::Of(this).status.Result(); }
const void* SFsLoad::Data() const { return Loader::Instance().Data(Load::Of(this)); }
void* SFsLoad::Take() { return Loader::Instance().Take(Load::Of(this)); }
bool SFsLoad::Cancel() { return Loader::Instance().Cancel(Load::Of(this)); }

const SFsError& SFsLoad::Error() const {
    static const SFsError none;
    return Load::Of(this).IsFinished() ? Load::Of(this).work.Failure() : none;
}

std::uint64_t SFsLoad::Size() const { return Load::Of(this).EndedWell() ? Load::Of(this).work.Size() : 0; }

void SFsLoad::Times(SFsLoadTimes& out) const {
    out = Load::Of(this).IsFinished() ? Load::Of(this).times : SFsLoadTimes{};
}

bool SFsLoad::Reprioritise(std::int32_t priority, std::uint32_t deadline_ms) {
    return Loader::Instance().Reprioritise(Load::Of(this), priority, deadline_ms);
}

void SFsLoadBatch::AddRef() { LoadBatch::Of(this).AddReference(); }
void SFsLoadBatch::Release() { LoadBatch::Of(this).DropReference(); }
bool SFsLoadBatch::Wait(std::uint32_t timeout_ms) {
    return Loader::Instance().Wait(timeout_ms, [&] { return Left() == 0; });
}
std::size_t SFsLoadBatch::Count() const { return LoadBatch::Of(this).Loads().size(); }
std::size_t SFsLoadBatch::Left() const { return LoadBatch::Of(this).Left(); }

SFsLoad* SFsLoadBatch::At(std::size_t index) const {
    const auto& loads = LoadBatch::Of(this).Loads();
    return index < loads.size() ? loads[index] : nullptr;
}

void SFsLoadBatch::Cancel() {
    for (Load* const load : LoadBatch::Of(this).Loads()) load->Cancel();
}
