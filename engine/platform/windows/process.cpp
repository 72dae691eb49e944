// The executable, the end of the process, message boxes, its console, companion modules, and large blocks of memory.
#include "engine/platform/process.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "engine/platform/text.h"
#include "engine/platform/windows/system.h"

namespace platform {

namespace {

bool is_set(const wchar_t* variable) { return GetEnvironmentVariableW(variable, nullptr, 0) > 1; }

// Services have no visible window station. A compatibility layer has one even without a screen, and its boxes would
// be answered by nobody.
bool has_desktop() {
    USEROBJECTFLAGS flags{};
    const HWINSTA station = GetProcessWindowStation();
    if (station == nullptr || !GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof flags, nullptr)) {
        return false;
    }
    if ((flags.dwFlags & WSF_VISIBLE) == 0) return false;
    const bool emulated = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    return !emulated || is_set(L"DISPLAY") || is_set(L"WAYLAND_DISPLAY");
}

/// The button that was pressed; 0 when nobody can see a box, or there is no memory for its text.
int show_box(const char* text, const char* caption, std::uint32_t style) try {
    return has_desktop() ? MessageBoxW(nullptr, to_utf16(text).c_str(), to_utf16(caption).c_str(), style) : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

Answer to_answer(int button, Answer otherwise) {
    if (button == IDABORT) return Answer::ABORT;
    if (button == IDRETRY) return Answer::RETRY;
    if (button == IDIGNORE) return Answer::CARRY_ON;
    return button == IDOK ? Answer::OK : otherwise;
}

/// How much of `text` can be taken without cutting a character in two.
DWORD whole_characters(const char* text, DWORD length, DWORD most) {
    if (length <= most) return length;
    DWORD end = most;
    while (end > most - 4 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return end;
}

// Both move up to `length` bytes and answer how many, 0 for a failure.
DWORD write_to_screen(HANDLE console, const char* text, DWORD length) {
    wchar_t wide[2048];
    const DWORD taken = whole_characters(text, length, std::size(wide));
    const int units = MultiByteToWideChar(CP_UTF8, 0, text, static_cast<int>(taken), wide, std::size(wide));
    DWORD written = 0;
    return WriteConsoleW(console, wide, static_cast<DWORD>(units), &written, nullptr) ? taken : 0;
}

DWORD write_to_file(HANDLE file, const char* text, DWORD length) {
    DWORD written = 0;
    return WriteFile(file, text, length, &written, nullptr) ? written : 0;
}

// What holds while a module is loaded. A damaged file must not raise the system's own message box. And the activation
// context is that of the library that holds this code: the one of its own manifest where it has one, else the process's
// default (null), so that whatever context the caller is in does not decide which files are loaded.
class Loading {
public:
    Loading() {
        SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &mode_before_);
        ACTCTXW request{};
        request.cbSize = sizeof request;
        request.dwFlags = ACTCTX_FLAG_HMODULE_VALID | ACTCTX_FLAG_RESOURCE_NAME_VALID;
        request.hModule = module_at(reinterpret_cast<const void*>(&module_at));
        request.lpResourceName = MAKEINTRESOURCEW(2);  // where a DLL keeps its manifest
        const HANDLE created = CreateActCtxW(&request);
        if (created != INVALID_HANDLE_VALUE) context_ = created;
        active_ = ActivateActCtx(context_, &cookie_) != 0;
    }
    Loading(const Loading&) = delete;
    Loading& operator=(const Loading&) = delete;
    ~Loading() {
        const DWORD error = GetLastError();
        if (active_) DeactivateActCtx(0, cookie_);
        if (context_ != nullptr) ReleaseActCtx(context_);
        SetThreadErrorMode(mode_before_, nullptr);
        SetLastError(error);  // the load's own
    }
    bool active() const { return active_; }

private:
    HANDLE context_ = nullptr;
    ULONG_PTR cookie_ = 0;
    DWORD mode_before_ = 0;
    bool active_ = false;
};

// A Module is the loader's own handle: there is no object of this type.
HMODULE to_handle(Module* module) { return reinterpret_cast<HMODULE>(module); }

Module* open_module(const char* directory, const char* name) {
    constexpr std::size_t longest_path = 4096;
    char path[longest_path];
    wchar_t wide[longest_path];
    const BoundedText text = BoundedText(path).add(directory).add(name).add(".dll");
    const bool is_whole = !text.is_cut() && to_wide(text.view(), wide, longest_path) != 0;
    return is_whole ? reinterpret_cast<Module*>(LoadLibraryW(wide)) : nullptr;
}

}  // namespace

std::string find_executable() {
    wchar_t wide[1024];
    const DWORD units = GetModuleFileNameW(nullptr, wide, std::size(wide));
    if (units == std::size(wide)) return {};  // it did not fit
    std::string path = to_utf8({wide, units});
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

std::string find_command_line() { return to_utf8(GetCommandLineW()); }

void exit_process(int code) { ExitProcess(static_cast<UINT>(code)); }

Answer show_message(const char* text, const char* caption, std::uint32_t style, Answer fallback) {
    if (const int button = show_box(text, caption, style)) return to_answer(button, fallback);
    std::fprintf(stderr, "%s: %s\n", caption, text);
    std::fflush(stderr);
    return fallback;
}

void* standard_output() {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    return output == INVALID_HANDLE_VALUE ? nullptr : output;
}

void write_console(void* console, const char* text, std::size_t length) {
    constexpr std::size_t largest_piece = 16 * 1024;  // older consoles take no more at once
    DWORD mode = 0;
    const auto write = GetConsoleMode(console, &mode) ? write_to_screen : write_to_file;
    while (console != nullptr && length != 0) {
        const DWORD written = write(console, text, static_cast<DWORD>(std::min(length, largest_piece)));
        if (written == 0) return;
        text += written;
        length -= written;
    }
}

std::uint32_t process_id() { return GetCurrentProcessId(); }

Module* load_module(const char* name) {
    const Loading loading;
    if (!loading.active()) return nullptr;
    Module* const beside = open_module(executable_directory(), name);
    return beside != nullptr ? beside : open_module("", name);
}

void* find_symbol(Module* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(to_handle(module), name));
}

void unload_module(Module* module) { FreeLibrary(to_handle(module)); }

void* allocate_block(std::size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE); }

// Pages cannot be moved here, so that growing copies.
void* grow_block(void* block, std::size_t old_size, std::size_t new_size) {
    void* const larger = allocate_block(new_size);
    if (larger == nullptr) return nullptr;
    std::memcpy(larger, block, old_size);
    free_block(block, old_size);
    return larger;
}

void free_block(void* block, std::size_t) { VirtualFree(block, 0, MEM_RELEASE); }

void populate(void*, std::size_t) {}

}  // namespace platform
