#include "engine/platform/process.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "engine/platform/bounded_text.h"
#include "engine/platform/never_destroyed.h"
#include "engine/platform/windows/wide_text.h"
#include "engine/platform/windows/windows_api.h"

namespace platform {

namespace {

/// Where this program lies. Read when first asked for; whoever runs at the very end of the process may still ask.
struct Facts {
    char path[4096] = "";
    char directory[4096] = "./";

    Facts() {
        wchar_t wide[sizeof path / 4];
        const DWORD units = GetModuleFileNameW(nullptr, wide, std::size(wide));
        if (units == 0 || units >= std::size(wide)) return;
        std::replace(path, path + to_narrow({wide, units}, path, sizeof path), '\\', '/');
        if (const char* const slash = std::strrchr(path, '/'))
            BoundedText(directory).add({path, static_cast<std::size_t>(slash - path) + 1});
    }
};

const Facts& facts() {
    static const Facts instance;
    return instance;
}

struct CommandLine {
    const std::string text = to_utf8(GetCommandLineW());
};

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

Answer to_answer(int button, Answer otherwise) {
    switch (button) {
        case IDOK:
            return Answer::OK;
        case IDABORT:
            return Answer::ABORT;
        case IDRETRY:
            return Answer::RETRY;
        case IDIGNORE:
            return Answer::CARRY_ON;
        default:
            return otherwise;
    }
}

// `write` moves up to so many bytes and answers how many, 0 for a failure.
template <typename Write>
void write_all(const char* text, std::size_t length, Write write) {
    constexpr std::size_t largest_piece = 16 * 1024;  // older consoles take no more at once
    while (length != 0) {
        const DWORD written = write(text, static_cast<DWORD>(std::min(length, largest_piece)));
        if (written == 0) return;
        text += written;
        length -= written;
    }
}

/// How much of `text` can be taken without cutting a character in two.
DWORD whole_characters(const char* text, DWORD length, DWORD most) {
    if (length <= most) return length;
    DWORD end = most;
    while (end > most - 4 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return end;
}

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

}  // namespace

const char* executable_path() { return facts().path; }

const char* executable_directory() { return facts().directory; }

const char* command_line() {
    static const NeverDestroyed<CommandLine> line;
    return line.value.text.c_str();
}

void exit_process(int code) { ExitProcess(static_cast<UINT>(code)); }

Answer show_message(const char* text, const char* caption, std::uint32_t style, Answer fallback) {
    const int button =
        has_desktop() ? MessageBoxW(nullptr, to_utf16(text).c_str(), to_utf16(caption).c_str(), style) : 0;
    if (button != 0) return to_answer(button, fallback);
    std::fprintf(stderr, "%s: %s\n", caption, text);
    std::fflush(stderr);
    return fallback;
}

void* standard_output() {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    return output == INVALID_HANDLE_VALUE ? nullptr : output;
}

void write_console(void* console, const char* text, std::size_t length) {
    if (console == nullptr) return;
    DWORD mode = 0;
    const auto write = GetConsoleMode(console, &mode) ? write_to_screen : write_to_file;
    write_all(text, length, [&](const char* piece, DWORD size) { return write(console, piece, size); });
}

std::uint32_t process_id() { return GetCurrentProcessId(); }

std::uint32_t processor_count() { return std::max<DWORD>(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS), 1); }

void trim_heap() { HeapCompact(GetProcessHeap(), 0); }

}  // namespace platform
