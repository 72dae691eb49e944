#pragma once

// Fonts for Dear ImGui from the engine's file system. Include the host's own imgui.h first.
//
//     enginefs::add_font(*ImGui::GetIO().Fonts, "fonts/console.ttf", 16.0F);

#ifndef IMGUI_VERSION
#error "include imgui.h before <engine/adapters/imgui.h>"
#endif

#include <engine/adapters/base.h>

namespace enginefs {

/// AddFontFromFileTTF for a file of the engine's file system, ".ttf" or ".otf". The atlas owns the font and its bytes.
///
/// Returns  the font, or null when the file could not be read (enginefs_last_error) or is none (ImGui asserts where it does).
/// Threads  as the atlas.
inline ImFont* add_font(ImFontAtlas& atlas, const char* path, float pixels, const ImFontConfig* config = nullptr,
                        const ImWchar* ranges = nullptr) {
    enginefs_file* const file = enginefs_open_seekable(path, ENGINEFS_READ, 0);
    if (file == nullptr) return nullptr;
    constexpr int64_t most = 0x7FFFFFFF;  // what an atlas counts in an int
    const int64_t size = enginefs_length(file);
    // The atlas frees the bytes by the allocator of ImGui, so they lie in a block of it.
    void* const data = size > 0 && size <= most ? ImGui::MemAlloc(static_cast<size_t>(size)) : nullptr;
    const bool is_whole = data != nullptr && enginefs_read(file, data, static_cast<uint64_t>(size)) == size;
    enginefs_close(file);
    if (!is_whole) {
        ImGui::MemFree(data);
        return nullptr;
    }
    ImFontConfig owning = config != nullptr ? *config : ImFontConfig();
    owning.FontDataOwnedByAtlas = true;
    return atlas.AddFontFromMemoryTTF(data, static_cast<int>(size), pixels, &owning, ranges);
}

}  // namespace enginefs
