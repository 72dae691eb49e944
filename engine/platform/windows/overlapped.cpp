#include <new>

#include "engine/platform/windows/native_path.h"

struct SNativeOverlapped {
    OVERLAPPED record;  // its event resets by itself
};

namespace platform {

namespace {

enum Status { PENDING = 0, DONE = 1, FAILED = 2, ABORTED = 3 };

int status_of(DWORD code) {
    if (code == ERROR_IO_PENDING) return PENDING;
    fail_os(code);
    return code == ERROR_OPERATION_ABORTED ? ABORTED : FAILED;
}

// Of a read that has ended.
int take_result(HANDLE handle, OVERLAPPED& record, std::uint32_t* transferred) {
    DWORD moved = 0;
    const bool done = GetOverlappedResult(handle, &record, &moved, FALSE);
    if (transferred != nullptr) *transferred = moved;
    return done ? DONE : status_of(GetLastError());
}

}  // namespace

SNativeOverlapped* create_overlapped() {
    auto* const overlapped = new (std::nothrow) SNativeOverlapped{};
    if (overlapped == nullptr) return nullptr;
    overlapped->record.hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (overlapped->record.hEvent != nullptr) return overlapped;
    delete overlapped;
    return nullptr;
}

void destroy_overlapped(SNativeOverlapped* overlapped) {
    if (overlapped == nullptr) return;
    CloseHandle(overlapped->record.hEvent);
    delete overlapped;
}

void set_overlapped_offset(SNativeOverlapped* overlapped, std::uint64_t offset) {
    const HANDLE event = overlapped->record.hEvent;
    overlapped->record = OVERLAPPED{};
    overlapped->record.Offset = static_cast<DWORD>(offset);
    overlapped->record.OffsetHigh = static_cast<DWORD>(offset >> 32);
    overlapped->record.hEvent = event;
}

int File::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred, SNativeOverlapped* overlapped) {
    if (transferred != nullptr) *transferred = 0;
    if (const auto fault = fault_at(FaultPoint::READ)) {
        if (*fault != Failure::NONE) {
            fail(*fault);
            return *fault == Failure::ABORTED ? ABORTED : FAILED;
        }
        size /= 2;
    }
    const HANDLE handle = to_handle(state_.handle);
    // A signal that nobody waited for, of a read that was done at once, must not end the wait for this one.
    ResetEvent(overlapped->record.hEvent);
    if (ReadFile(handle, buffer, size, nullptr, &overlapped->record)) {
        return take_result(handle, overlapped->record, transferred);
    }
    return status_of(GetLastError());
}

int wait_overlapped(const File& file, SNativeOverlapped* overlapped, std::uint32_t* transferred) {
    if (transferred != nullptr) *transferred = 0;
    if (WaitForSingleObject(overlapped->record.hEvent, INFINITE) != WAIT_OBJECT_0) return status_of(GetLastError());
    return take_result(to_handle(file.native()), overlapped->record, transferred);
}

bool File::cancel() {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    const HANDLE handle = to_handle(state_.handle);
    if (CancelIoEx(handle, nullptr) || GetLastError() == ERROR_NOT_FOUND) return true;  // nothing was in flight
    return CancelIo(handle) || fail_last();
}

}  // namespace platform
