#include "engine/filesystem/contract/error.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

TEST(Guarded, TellsWhichExceptionEndedTheCall) {
    const std::pair<std::function<void()>, EFSError::TYPE> rows[] = {
        {[] { throw std::bad_alloc(); }, EFSError::OUT_OF_MEMORY},
        {[] { throw std::length_error("long"); }, EFSError::TOO_LARGE},
        // It was taken for a lack of memory; what a host's source throws over std::filesystem is one.
        {[] { throw std::system_error(std::make_error_code(std::errc::io_error)); }, EFSError::IO}};
    for (const auto& [work, code] : rows) {
        fs::guarded("x", work);
        EXPECT_EQ(fs::last_error().code, code);
    }
}

}  // namespace
