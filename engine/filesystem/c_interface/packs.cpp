#include <memory>
#include <new>

#include <engine/filesystem/containers/pack_writer.h>
#include <engine/filesystem/pack_reader.h>

#include "engine/filesystem/c_interface/call.h"

namespace {

using namespace fs::c;

bool is_method(int method) {
    return method == ENGINEFS_METHOD_STORE || method == ENGINEFS_METHOD_DEFLATE || method == ENGINEFS_METHOD_ZSTD ||
           refuse_argument("There is no such method.");
}

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

enginefs_pack* enginefs_pack_create(const char* native_path) {
    return fs::guarded<enginefs_pack*>(native_path, nullptr, [&]() -> enginefs_pack* {
        if (!is_new_name(native_path)) return nullptr;
        auto pack = std::make_unique<fs::pack_writer>();
        return pack->open(native_path) ? give<enginefs_pack>(std::move(pack)) : nullptr;
    });
}

int enginefs_pack_add(enginefs_pack* pack, const char* name, const void* data, uint64_t size, int method, int level,
                      int64_t time) {
    return status_of(pack, [&](fs::pack_writer& writer) {
        return is_new_name(name) && is_block(data, size) && is_method(method) &&
               writer.add(name, data, size, level, time, static_cast<EFSPackMethod::TYPE>(method));
    });
}

int enginefs_pack_add_deflated(enginefs_pack* pack, const char* name, const void* packed, uint64_t packed_size,
                               uint64_t size, uint32_t crc, int64_t time) {
    return status_of(pack, [&](fs::pack_writer& writer) {
        return is_new_name(name) && is_block(packed, packed_size) &&
               writer.add_deflated(name, packed, packed_size, size, crc, time);
    });
}

int enginefs_pack_finish(enginefs_pack* pack) {
    return status_of_end(pack, [](fs::pack_writer& writer) { return writer.finish(); });
}

int enginefs_pack_cancel(enginefs_pack* pack) {
    return status_of_end(pack, [](fs::pack_writer& writer) { return writer.cancel(), true; });
}

int enginefs_add_pack_reader(const char* name, const enginefs_pack_reader* reader, uint32_t flags) {
    return status(name, [&] {
        enginefs_pack_reader host{};
        return take(reader, host) && add_reader(name, host, flags);
    });
}
