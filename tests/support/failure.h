#pragma once

#include <engine/filesystem/contract/error.h>

namespace test {

/// What `why` answers for a failure without a reason.
inline constexpr auto unexplained = static_cast<EFSError::TYPE>(~0u);

/// Why a call failed, of which this is the answer: a bool, a handle, a block. NONE when it did not fail.
template <typename Answer>
EFSError::TYPE why(const Answer& answer) {
    const EFSError::TYPE code = fs::last_error().code;
    fs::clear_error();
    if (answer) return EFSError::NONE;
    return code != EFSError::NONE ? code : unexplained;
}

}  // namespace test
