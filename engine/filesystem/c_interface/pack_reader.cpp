#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem_c.h>

#include <new>

#include "engine/filesystem/c_interface/call.h"

namespace {

using namespace fs::c;

void end(const enginefs_pack_reader& calls) noexcept {
    if (calls.release != nullptr) fs::guarded(nullptr, [&] { calls.release(calls.user); });
}

class HostReader final : public fs::pack_reader {
public:
    explicit HostReader(const enginefs_pack_reader& calls) : calls_(calls) {}

    std::uint64_t length() override { return calls_.length; }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        return calls_.read_at(calls_.user, offset, to, size);
    }
    void release() noexcept override {
        end(calls_);
        delete this;
    }

private:
    const enginefs_pack_reader calls_;
};

}  // namespace

int enginefs_add_pack_reader(const char* name, const enginefs_pack_reader* reader, uint32_t flags) {
    return status(name, [&] {
        enginefs_pack_reader calls{};
        if (!take(reader, calls)) return false;
        const bool is_good = is_new_name(name) && are_known(flags, source_flags) &&
                             are_given({reinterpret_cast<const void*>(calls.read_at)});
        auto* const host = is_good ? new (std::nothrow) HostReader(calls) : nullptr;
        if (host != nullptr) return fs::add_pack_reader(name, *host, static_cast<FFSAddSourceFlags::ENUM>(flags));
        end(calls);
        return is_good && fs::refuse(EFSError::OUT_OF_MEMORY, name, "There is not enough memory.");
    });
}
