#include <cstdlib>
#include <memory>
#include <utility>

#include <engine/filesystem/contract/viewable_file.h>
#include <engine/filesystem/loading.h>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/loading/work.h"

// A view keeps its file open, and with it whatever the bytes lie in: the mapping, or the pack in memory.

namespace fs {

namespace {

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};

/// What a view's owner points to: the open file, or a copy.
struct Shown {
    FilePtr file;
    std::unique_ptr<void, FreeBlock> copy;
};

const void* look_at(SFsFile& file, std::uint64_t& size, bool populate) {
    auto* const viewable = dynamic_cast<ViewableFile*>(&file);
    return viewable != nullptr ? viewable->view(size, populate) : nullptr;
}

bool read_on(LoadWork& work) {
    LoadWork::Step step;
    do step = work.Next();
    while (step != LoadWork::Step::DONE && step != LoadWork::Step::FAILED);
    return step == LoadWork::Step::DONE;
}

bool refuse_copy(const char* path, const ErrorScope& scope) {
    return fail_unless_told(scope, EFSError::UNSUPPORTED, path, "The bytes of this file are not shown without a copy.");
}

bool show(const char* path, SFsView& out, FFSMapFlags::ENUM flags) {
    auto shown = std::make_unique<Shown>();
    LoadWork work({.path = path});
    if (work.Next() == LoadWork::Step::FAILED) return false;  // opens the file
    ErrorScope scope;
    SFsView view;
    view.data = look_at(work.File(), view.size, (flags & FFSMapFlags::POPULATE) != 0);
    view.is_mapped = view.data != nullptr;
    if (view.is_mapped) {
        shown->file = work.TakeFile();
    } else {
        if ((flags & FFSMapFlags::NO_COPY) != 0) return refuse_copy(path, scope);
        if (!read_on(work)) return false;
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

bool map(const char* path, SFsView& out, FFSMapFlags::ENUM flags) {
    out = {};
    if (path == nullptr || *path == '\0') return refuse(EFSError::INVALID_NAME, path, "An empty path names no file.");
    const DiskUse use("opened", path);
    return guarded(path, false, [&] { return show(path, out, flags); });
}

void unmap(SFsView& view) {
    delete static_cast<Shown*>(view.owner);
    view = {};
}

}  // namespace fs
