#pragma once

#include <optional>
#include <string_view>

#include "engine/filesystem/registry/registry.h"

// Which sources a name is for, and which of them hold it. Called with the registry's lock held.

namespace fs::registry {

/// How a name is compared with what a source holds: as the source looks names up, which may be by their end, or whole.
enum class Match { AS_SOURCE_DOES, WHOLE };
constexpr Match match_of(FFSOpenFlags::FLAGS flags) {
    return (flags & FFSOpenFlags::WHOLE_NAME) != 0 ? Match::WHOLE : Match::AS_SOURCE_DOES;
}

/// A full path that lies in a mounted directory means the file there: other directories are not asked, packs and sources
/// that stand nowhere on the disk are, by its end. One that lies in no mounted directory belongs to the disk, that is to
/// the fallback, alone. A name that is not full is for every source.
class Concerned {
public:
    explicit Concerned(const fs::path& name);

    bool operator()(CFSSource& source) const;
    /// Whether the name belongs to the disk alone.
    bool is_outside() const { return home_ == nullptr && is_full_; }
    /// The first source in whose directory a full path lies; null for every other name.
    CFSSource* home() const { return home_; }

private:
    const fs::path& name_;
    bool is_full_;
    CFSSource* home_ = nullptr;
};

/// The first source that the name is for and for which `wanted(source)` is true; null when none is, and for an empty name.
template <typename Predicate>
CFSSource* first_concerned(const fs::path& name, Predicate wanted) {
    if (name.Empty()) return nullptr;
    const Concerned concerned(name);
    return first_source([&](CFSSource& source) { return concerned(source) && wanted(source); });
}

/// The part of the directory `dir` (a full path) below the native root of the source, as its entries tell it; nothing
/// when it lies elsewhere.
std::optional<std::string_view> below_root(CFSSource& source, std::string_view dir);

/// Whether the source holds a file of just this name.
bool holds_whole(CFSSource& source, const fs::path& name);
bool holds(CFSSource& source, const fs::path& name, Match match);

/// The first source, in asking order, that the name is for and that holds it; null when none does.
CFSSource* first_holder(const fs::path& name, Match match);

}  // namespace fs::registry
