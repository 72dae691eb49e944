#include "engine/platform/mapping.h"

#include "engine/platform/windows/native_path.h"

namespace platform {

Mapping::Mapping(const File& file, std::uint64_t offset, std::uint64_t size) {
    if (meets_fault(FaultPoint::READ)) return;
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    skip_ = static_cast<std::size_t>(offset % system.dwAllocationGranularity);
    length_ = static_cast<std::size_t>(size) + skip_;
    const std::uint64_t from = offset - skip_;
    HANDLE const section = CreateFileMappingW(to_handle(file.native()), nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (section != nullptr) {
        start_ =
            MapViewOfFile(section, FILE_MAP_READ, static_cast<DWORD>(from >> 32), static_cast<DWORD>(from), length_);
    }
    if (start_ == nullptr) fail_last();
    if (section != nullptr) CloseHandle(section);  // the view keeps it
}

// A file that is mapped cannot be cut here, so every page is there to be touched.
bool Mapping::Populate() const {
    constexpr std::size_t page = 4096;
    for (std::size_t at = 0; at < length_; at += page) static_cast<void>(static_cast<const volatile char*>(start_)[at]);
    return true;
}

void Mapping::Unmap() {
    if (start_ != nullptr) UnmapViewOfFile(start_);
    start_ = nullptr;
}

}  // namespace platform
