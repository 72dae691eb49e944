#include <memory>
#include <new>

#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem_c.h>

#include "engine/filesystem/c_interface/call.h"

namespace {

using namespace fs::c;

void release_host(const enginefs_pack_reader& host) noexcept {
    fs::guarded(nullptr, [&] {
        if (host.release != nullptr) host.release(host.user);
    });
}

/// Lives until the library releases it.
class HostReader final : public fs::pack_reader {
public:
    explicit HostReader(const enginefs_pack_reader& host) : host_(host) {}

    std::uint64_t length() override { return host_.length; }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
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
    return is_new_name(name) && are_given({reinterpret_cast<const void*>(host.read_at)}) &&
           are_known(flags, source_flags) &&
           fs::add_pack_reader(name, *reader.release(), static_cast<FFSAddSourceFlags::ENUM>(flags));
}

}  // namespace

int enginefs_add_pack_reader(const char* name, const enginefs_pack_reader* reader, uint32_t flags) {
    return status(name, [&] {
        enginefs_pack_reader host{};
        return take(reader, host) && add_reader(name, host, flags);
    });
}
