// usage: adapter_istream ROOT PACK NAME PLAIN
// Reads NAME through the engine and PLAIN, the same bytes, from the disk at 300 random places, and holds them against each
// other; then once from begin to end.
#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include "mount.h"

#include <engine/adapters/istream.h>

namespace {

/// Up to `size` bytes from `position`.
std::string piece(std::istream& in, std::streamoff position, std::size_t size) {
    std::string text(size, '\0');
    in.clear();
    in.seekg(position).read(text.data(), static_cast<std::streamsize>(size));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    if (mount(argv[1], argv[2]) != 0) return 1;
    int status = 0;
    {
        enginefs::ifstream ours(argv[3]);
        std::ifstream plain(argv[4], std::ios::binary);
        if (!ours) return complain(argv[3]);
        const std::streamoff length = ours.seekg(0, std::ios::end).tellg();
        std::mt19937 random(300);
        for (int i = 0; i < 300; ++i) {
            const auto position = static_cast<std::streamoff>(random() % static_cast<unsigned long long>(length + 1));
            const std::size_t size = random() % (i % 2 == 0 ? 100 : 50000);
            if (piece(ours, position, size) != piece(plain, position, size)) status = 1;
        }
        const auto more = static_cast<std::size_t>(length + 1);
        if (piece(ours, 0, more) != piece(plain, 0, more)) status = 1;
        if (ours.bad()) return complain(argv[3]);
    }
    enginefs_shutdown();
    std::puts(status == 0 ? "300 places and the whole are the same" : "not the same");
    return status;
}
