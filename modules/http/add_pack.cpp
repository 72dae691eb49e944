#include <new>

#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem_http.h>

#include "remote_pack.h"
#include "url.h"

namespace fs::http {

namespace {

/// What is mounted when there is no memory for a pack, so that the reason is told as any other.
class NoMemory final : public pack_reader {
public:
    std::uint64_t length() override { throw std::bad_alloc(); }
    std::int64_t read_at(std::uint64_t, void*, std::uint64_t) override { return -1; }
};

}  // namespace

fs::string source_name(const char* url) { return shown_url(url ? url : ""); }

bool add_pack(const char* url, const char* cache_dir, const options& how) {
    try {
        const std::string address(url ? url : "");
        std::string name = how.name.empty() ? shown_url(address) : how.name;
        if (name.empty()) name = "(no URL)";
        return add_pack_reader(name.c_str(), *new RemotePack(address, cache_dir ? cache_dir : "", how), how.flags);
    } catch (const std::bad_alloc&) {
        static NoMemory reader;
        return add_pack_reader("(no memory)", reader);
    }
}

}  // namespace fs::http
