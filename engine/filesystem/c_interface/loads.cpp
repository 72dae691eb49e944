#include <memory>
#include <utility>

#include <engine/filesystem/loading.h>

#include "engine/filesystem/c_interface/call.h"

// A load's handle is made before the load, since its callback may run before the call that started it has returned. So
// the callback puts the load behind the handle just as that call does, whichever comes first, and may end the handle.

namespace {

using namespace fs::c;

/// What a load tells its end to.
struct Listener {
    enginefs_load_callback callback;
    void* user;
    enginefs_async_load* handle;
};

void set_load(enginefs_async_load* handle, SFsLoad* load) {
    handles::set(reinterpret_cast<handles::Handle>(handle), load);
}

void tell(SFsLoad* load, void* user) {
    const std::unique_ptr<Listener> listener(static_cast<Listener*>(user));
    set_load(listener->handle, load);
    const InHost in_host;
    listener->callback(listener->handle, listener->user);
}

enginefs_async_load* start(const enginefs_load_wish& wish) {
    NewHandle<enginefs_async_load> handle(give<enginefs_async_load>(nullptr));
    std::unique_ptr<Listener> listener;
    if (wish.callback != nullptr)
        listener =
            std::make_unique<Listener>(Listener{.callback = wish.callback, .user = wish.user, .handle = handle.get()});
    SFsLoad* const load = fs::load_async({.path = wish.path,
                                          .offset = wish.offset,
                                          .size = wish.size,
                                          .buffer = wish.buffer,
                                          .capacity = wish.capacity,
                                          .priority = wish.priority,
                                          .deadline_ms = wish.deadline_ms,
                                          .callback = listener ? tell : nullptr,
                                          .user = listener.get(),
                                          .flags = as_open_flags(wish.flags)});
    if (load == nullptr) return nullptr;
    static_cast<void>(listener.release());
    set_load(handle.get(), load);
    return handle.release();
}

/// Why a load that has ended has no bytes to give, told as this thread's failure.
void tell_why_not(const SFsLoad& load) {
    const SFsError& error = load.Error();
    if (error.code != EFSError::NONE)
        fs::set_error(error.code, error.path.c_str(), error.text, error.os_code);
    else
        refuse_argument("The block of this load was taken already.");
}

int state_of(const SFsLoad& load) {
    const EFSRequestState::TYPE state = load.State();
    if (state == EFSRequestState::QUEUED) return ENGINEFS_LOAD_QUEUED;
    if (state == EFSRequestState::IN_PROGRESS) return ENGINEFS_LOAD_RUNNING;
    if (load.Result() == EFSRequestResult::SUCCESS) return ENGINEFS_LOAD_DONE;
    return load.Result() == EFSRequestResult::CANCELLED ? ENGINEFS_LOAD_CANCELLED : ENGINEFS_LOAD_FAILED;
}

}  // namespace

enginefs_async_load* enginefs_load_async(const enginefs_load_wish* wish) {
    return fs::guarded<enginefs_async_load*>(nullptr, nullptr, [&]() -> enginefs_async_load* {
        enginefs_load_wish known{};
        return take(wish, known) && is_name(known.path, known.flags) ? start(known) : nullptr;
    });
}

int enginefs_load_wait(enginefs_async_load* load, uint32_t timeout_ms) {
    SFsLoad* const known = find(load);
    return known != nullptr ? static_cast<int>(known->Wait(timeout_ms)) : -1;
}

int enginefs_load_state(enginefs_async_load* load) {
    const SFsLoad* const known = find(load);
    return known != nullptr ? state_of(*known) : -1;
}

void* enginefs_load_take(enginefs_async_load* load, uint64_t* size) {
    if (size != nullptr) *size = 0;
    SFsLoad* const known = find(load);
    if (known == nullptr) return nullptr;
    if (known->State() != EFSRequestState::FINISHED) return refuse_argument("The load has not ended yet."), nullptr;
    // Taken first and looked at after, so that of two threads one gets the block.
    void* const taken = known->Take();
    void* const block = taken != nullptr ? taken : const_cast<void*>(known->Data());  // the caller's own buffer
    if (block == nullptr) return tell_why_not(*known), nullptr;
    if (size != nullptr) *size = known->Size();
    return block;
}

int enginefs_load_cancel(enginefs_async_load* load) {
    return status_of(load, [](SFsLoad& known) { return known.Cancel(), true; });
}

int enginefs_load_release(enginefs_async_load* load) {
    return status_of_end(load, [](SFsLoad&) { return true; });
}
