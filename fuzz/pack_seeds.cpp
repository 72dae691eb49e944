// Small packs: stored and deflated entries, directories, equal names, an empty one.
#include <string>

#include <engine/filesystem/containers/pack_writer.h>

#include "tests/support/temp_directory.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::string mixed;
    for (int i = 0; i < 9000; ++i) mixed += "line " + std::to_string(i * i % 977) + static_cast<char>(i * 37);
    const std::string bodies[] = {"", "abc", std::string(40000, 'x'), mixed};
    for (int number = 0; number < 16; ++number) {
        const std::string path = std::string(argv[1]) + "/pack" + std::to_string(number);
        fs::pack_writer writer;
        if (!writer.open(path.c_str())) return 1;
        for (int i = 0; i < number; ++i) {
            const std::string& body = bodies[i % 4];
            const std::string name = (i % 3 == 0   ? ""
                                      : i % 3 == 1 ? "a/"
                                                   : "b/a" + std::to_string(i) + "/") +
                                     std::string("n") + (number > 8 ? "" : std::to_string(i)) +
                                     (i % 3 == 2 ? "" : std::to_string(i));
            writer.add(name.c_str(), body.data(), body.size(), (i + number) % 3 * 4, 0,
                       i % 5 == 4 ? EFSPackMethod::ZSTD : EFSPackMethod::DEFLATE);
        }
        if (!writer.finish()) return 1;
        if (!write_file(path, static_cast<char>(number) + read_file(path))) return 1;
    }
    return 0;
}
