#include "engine/platform/modules.h"

#include <windows.h>

#include <cstdio>

#include "engine/platform/process.h"
#include "engine/platform/windows/wide_text.h"

namespace platform {

// A Module is the loader's own handle: there is no object of this type.

namespace {

constexpr int longest_path = 4096;

// The activation context of the library that holds this code: the one of its own manifest where it has one, else the
// process's default (null), so that whatever context the caller is in does not decide which files are loaded.
class ModuleContext {
public:
    ModuleContext() {
        ACTCTXW request{};
        request.cbSize = sizeof request;
        request.dwFlags = ACTCTX_FLAG_HMODULE_VALID | ACTCTX_FLAG_RESOURCE_NAME_VALID;
        request.hModule = own_module();
        request.lpResourceName = MAKEINTRESOURCEW(2);  // where a DLL keeps its manifest
        const HANDLE own = CreateActCtxW(&request);
        if (own != INVALID_HANDLE_VALUE) context_ = own;
        active_ = ActivateActCtx(context_, &cookie_) != 0;
    }
    ModuleContext(const ModuleContext&) = delete;
    ModuleContext& operator=(const ModuleContext&) = delete;
    ~ModuleContext() {
        const DWORD error = GetLastError();
        if (active_) DeactivateActCtx(0, cookie_);
        if (context_ != nullptr) ReleaseActCtx(context_);
        SetLastError(error);  // the load's own
    }
    bool active() const { return active_; }

private:
    static HMODULE own_module() {
        HMODULE module = nullptr;
        constexpr DWORD by_address =
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
        GetModuleHandleExW(by_address, reinterpret_cast<const wchar_t*>(&own_module), &module);
        return module;
    }

    HANDLE context_ = nullptr;
    ULONG_PTR cookie_ = 0;
    bool active_ = false;
};

// A damaged file must not raise the system's own message box.
class QuietErrors {
public:
    QuietErrors() { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &before_); }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
    ~QuietErrors() { SetThreadErrorMode(before_, nullptr); }

private:
    DWORD before_ = 0;
};

HMODULE to_handle(Module* module) { return reinterpret_cast<HMODULE>(module); }

Module* open_module(const char* directory, const char* name) {
    char path[longest_path];
    wchar_t wide[longest_path];
    const int length = std::snprintf(path, sizeof path, "%s%s.dll", directory, name);
    if (length < 0 || length >= longest_path) return nullptr;
    if (to_wide({path, static_cast<std::size_t>(length)}, wide, longest_path) == 0) return nullptr;
    return reinterpret_cast<Module*>(LoadLibraryW(wide));
}

}  // namespace

Module* load_module(const char* name) {
    const QuietErrors quiet;
    const ModuleContext context;
    if (!context.active()) return nullptr;
    Module* const beside = open_module(executable_directory(), name);
    return beside != nullptr ? beside : open_module("", name);
}

void* find_symbol(Module* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(to_handle(module), name));
}

void unload_module(Module* module) { FreeLibrary(to_handle(module)); }

}  // namespace platform
