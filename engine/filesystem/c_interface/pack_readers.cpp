#include <memory>
#include <new>

#include <engine/filesystem/pack_reader.h>

#include "engine/filesystem/c_interface/call.h"
#include "engine/filesystem/c_interface/host.h"

namespace {

using namespace fs::c;

/// Its own failures do not take the place of what the library has to tell.
void release_host(const enginefs_pack_reader& host) noexcept {
    const InHost in_host;
    fs::ErrorScope scope;
    fs::guarded(nullptr, [&] {
        if (host.release != nullptr) host.release(host.user);
    });
    scope.forget();
}

/// Lives until the library releases it.
class HostReader final : public fs::pack_reader {
public:
    explicit HostReader(const enginefs_pack_reader& host) : host_(host) {}

    std::uint64_t length() override { return host_.length; }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        const InHost in_host;
        return host_.read_at(host_.user, offset, to, size);
    }
    void release() noexcept override {
        release_host(host_);
        delete this;
    }

private:
    const enginefs_pack_reader host_;
};

struct Release {
    void operator()(HostReader* reader) const { reader->release(); }
};

bool add_reader(const char* name, const enginefs_pack_reader& host, uint32_t flags) {
    std::unique_ptr<HostReader, Release> reader(new (std::nothrow) HostReader(host));
    if (!reader) {
        release_host(host);
        throw std::bad_alloc();
    }
    return is_name(name, flags, source_flags) && is_new_name(name) &&
           are_given({reinterpret_cast<const void*>(host.read_at)}) &&
           fs::add_pack_reader(name, *reader.release(), as_source_flags(flags));
}

}  // namespace

int enginefs_add_pack_reader(const char* name, const enginefs_pack_reader* reader, uint32_t flags) {
    return status(name, [&] {
        enginefs_pack_reader host{};
        return take(reader, host) && add_reader(name, host, flags);
    });
}
