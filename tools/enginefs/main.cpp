// enginefs: what content and build people do every day with the engine's file system, over its exported interface.

#include <new>

#if defined(ENGINE_HAS_HTTP)
#include <engine/filesystem_http.h>
#endif

#include "program.h"
#include "session.h"

#if defined(ENGINE_HAS_HTTP)
namespace {

/// Blocks of the pack are kept below the cache directory, where there is one. Passwords in a URL are not told.
bool mount_by_http(const std::string& url, FFSAddSourceFlags::ENUM flags) {
    const std::string cache_dir = *fs::get_cache_dir() != '\0' ? std::string(fs::get_cache_dir()) + "http" : "";
    return attempt(fs::http::source_name(url.c_str()), "it cannot be mounted",
                   [&] { return fs::http::add_pack(url.c_str(), cache_dir.c_str(), {.flags = flags}); });
}

}  // namespace
#endif

int main(int argc, char** argv) {
#if defined(ENGINE_HAS_HTTP)
    mount_url = mount_by_http;
#endif
    prepare_streams();
    try {
        Program program;
        const std::optional<int> ended = program.parse(argc, argv);
        return finish_output(ended ? *ended : program.run());
    } catch (const std::bad_alloc&) {
        fail_without_memory();
        return exit_failed;
    }
}
