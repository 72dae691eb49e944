#pragma once

// Packs on a web server: engine_filesystem_http, a module of its own over libcurl.

#include <cstdint>

#include <engine/filesystem/contract/flags.h>
#include <engine/kernel/ztl.h>

#if defined(ENGINE_FS_STATIC)
#define ENGINE_FS_HTTP_API
#else
#define ENGINE_FS_HTTP_API __attribute__((visibility("default")))
#endif

namespace fs::http {

struct options {
    fs::string name{};                  // of the source and its kept blocks; "": source_name(url), and the whole URL
    ztl::vector<fs::string> headers{};  // sent with every request, e.g. "Authorization: Bearer ..."; never in a message
    std::uint32_t connections = 8;      // to the server at once, 1 to 32
    std::uint32_t connect_timeout_ms = 10'000;
    std::uint32_t stall_timeout_ms = 10'000;  // a transfer below 1 KiB a second for so long fails
    std::uint32_t retries = 4;                // of a request that got nothing and whose failure may pass
    std::uint32_t longest_wait_ms = 5'000;    // before a retry, even where Retry-After asks for more
    std::uint64_t first_bytes = 256 * 1024;   // fetched first, from the end of the pack; best all of its directory
    FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE;
};

/// Mounts the pack at an http or https URL and registers it as fs::add_pack_reader does. Two requests mount it at most; what
/// entries need of it is fetched when they are read, in blocks of 64 KiB (docs/remote.md).
///
/// cache_dir  where fetched blocks are kept for later runs, in one file for each URL; made when it is missing. Null or "":
///            blocks are kept until the source is gone, in a file without a name in the system's folder for such.
/// Returns    false, with the reason in fs::last_error: the URL is none of http or https, the server does not answer, has
///            no such file or serves no ranges of it, or the file is no pack.
/// Changes    a file that was changed on the server since the mount fails the reads that need more of it; what was fetched
///            before is not mixed with it. rem_source and a new mount take the new one.
/// Threads    any; may take long, and so may reading. Removing the source ends what is being fetched.
ENGINE_FS_HTTP_API bool add_pack(const char* url, const char* cache_dir, const options& how = {});

/// What the source of this URL is called unless options say otherwise: the URL without user, password, query and fragment;
/// "" when it is none of http or https. fs::rem_source takes it.
ENGINE_FS_HTTP_API fs::string source_name(const char* url);

}  // namespace fs::http
