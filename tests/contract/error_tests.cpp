#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "engine/filesystem/contract/error.h"

namespace {

TEST(ErrorScope, ANameNotFoundDoesNotHideABetterReason) {
    fs::set_error(EFSError::IO, "before", "An older failure.");
    {
        const fs::ErrorScope scope;
        EXPECT_FALSE(scope.has_error());
        fs::set_error(EFSError::NOT_FOUND, "a", "Not here.");
        fs::set_error(EFSError::IN_USE, "b", std::string("In use."), 32);
        fs::set_error(EFSError::NOT_FOUND, "c", "Not here either.");
        EXPECT_TRUE(scope.has_error());
        EXPECT_EQ(fs::last_error().path, "b");
    }
    fs::set_error(EFSError::NOT_FOUND, "d", "Not here.");
    {
        fs::ErrorScope outer;
        {
            fs::ErrorScope inner;
            fs::set_error(EFSError::IO, "e", "Within.");
            inner.forget();
            EXPECT_FALSE(inner.has_error());
            EXPECT_EQ(fs::last_error().path, "d");
            fs::set_error(EFSError::IO, "f", "Within again.");
        }
        EXPECT_TRUE(outer.has_error());
        outer.forget();
    }
    EXPECT_EQ(fs::last_error().path, "d");
}

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
