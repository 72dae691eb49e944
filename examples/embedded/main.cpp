// A program of a project that has the library as a part: it mounts its own folder and reads what it finds there.
#include <engine/filesystem.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    fs::string text;
    const bool good = fs::init(argv[1], FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr) &&
                      fs::load_text_file(text, argv[2]) && !text.empty();
    std::printf("%s: %zu bytes\n", good ? argv[2] : fs::last_error().text.c_str(), text.size());
    fs::shutdown();
    return good ? 0 : 1;
}
