// usage: adapter_imgui ROOT PACK NAME
// Makes an atlas of the font NAME, as a program with Dear ImGui does before its first frame.
#include <imgui.h>

#include <cstdio>

#include "mount.h"

#include <engine/adapters/imgui.h>

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    if (mount(argv[1], argv[2]) != 0) return 1;
    {
        ImFontAtlas atlas;
        const ImFont* const font = enginefs::add_font(atlas, argv[3], 16.0F);
        if (font == nullptr) return complain(argv[3]);
        atlas.Build();
        const ImFontGlyph* const glyph = font->FindGlyphNoFallback('A');
        std::printf("A is %s\n", glyph != nullptr && glyph->AdvanceX > 4.0F ? "there" : "missing");
    }
    return enginefs_shutdown();
}
