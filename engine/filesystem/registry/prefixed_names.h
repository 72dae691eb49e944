#pragma once

#include <string_view>

namespace fs::registry {

/// What a source has whose names all begin alike: new files of other names are none of its business. A source class derives
/// from it besides CFSSource.
class PrefixedNames {
public:
    /// In lower case, ending in "/".
    virtual std::string_view prefix() const = 0;

protected:
    ~PrefixedNames() = default;
};

}  // namespace fs::registry
