#include <engine/filesystem/loading.h>

#include <algorithm>
#include <memory>
#include <new>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/loading/control.h"
#include "engine/filesystem/loading/loader.h"

// The exported boundary of the room.

namespace fs {

namespace {

bool names_a_file(const SFsLoadWish& wish) {
    if (wish.path != nullptr && wish.path[0] != '\0') return true;
    return refuse(EFSError::INVALID_NAME, wish.path, "An empty path names no file.");
}

struct ReleaseBatch {
    void operator()(LoadBatch* batch) const { batch->DropReference(); }
};

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
        if (wishes == nullptr || count == 0) {
            set_error(EFSError::INVALID_ARGUMENT, nullptr, "A batch without wishes loads nothing.");
            return nullptr;
        }
        if (!std::all_of(wishes, wishes + count, names_a_file)) return nullptr;
        std::unique_ptr<LoadBatch, ReleaseBatch> batch(new LoadBatch(count, callback, user));
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

}  // namespace fs

using fs::Load;
using fs::LoadBatch;
using fs::Loader;

void SFsLoad::AddRef() { Load::Of(this).AddReference(); }
void SFsLoad::Release() { Loader::Instance().Release(Load::Of(this)); }
bool SFsLoad::Wait(std::uint32_t timeout_ms) { return Loader::Instance().Wait(Load::Of(this), timeout_ms); }
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
bool SFsLoadBatch::Wait(std::uint32_t timeout_ms) { return Loader::Instance().Wait(LoadBatch::Of(this), timeout_ms); }
std::size_t SFsLoadBatch::Count() const { return LoadBatch::Of(this).Loads().size(); }
std::size_t SFsLoadBatch::Left() const { return LoadBatch::Of(this).Left(); }

SFsLoad* SFsLoadBatch::At(std::size_t index) const {
    const auto& loads = LoadBatch::Of(this).Loads();
    return index < loads.size() ? loads[index] : nullptr;
}

void SFsLoadBatch::Cancel() {
    for (Load* const load : LoadBatch::Of(this).Loads()) load->Cancel();
}
