#pragma once

#include <string>
#include <vector>

/// Names that are chosen among those of a tree, by patterns in any case. One without "/" is held against each part of a
/// name, one with it against the whole and against each directory that the name lies in: "*.tga", "textures" and
/// "maps/one*" choose what one thinks of.
class Globs {
public:
    std::vector<std::string> include{};  // none: every name
    std::vector<std::string> exclude{};

    bool take(const std::string& name) const { return (include.empty() || any(include, name)) && !leave_out(name); }
    bool leave_out(const std::string& name) const { return any(exclude, name); }
    static bool selects(const std::string& pattern, const std::string& name);

private:
    static bool any(const std::vector<std::string>& patterns, const std::string& name);
};
