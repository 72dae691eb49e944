// Prints an entry of a pack on a web server: http_host URL NAME
#include <cstdio>

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>
#include <engine/filesystem_http.h>

int main(int argc, char** argv) {
    if (argc != 3 || !fs::init({.root = "/", .flags = FFSAddSourceFlags::NONE, .use_fallback = false})) return 2;
    fs::string text;
    const bool is_read = fs::http::add_pack(argv[1], nullptr, {.retries = 1}) && fs::load_text_file(text, argv[2]);
    if (is_read) std::fwrite(text.c_str(), 1, text.size(), stdout);
    if (!is_read) std::fprintf(stderr, "%s\n", fs::last_error().text.c_str());
    fs::shutdown();
    return is_read ? 0 : 1;
}
