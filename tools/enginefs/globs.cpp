#include "globs.h"

#include <algorithm>

#include "names.h"

bool matches(std::string_view pattern, std::string_view name) {
    constexpr std::size_t none = std::string_view::npos;
    struct {
        std::size_t pattern = none, name = 0;
    } part, path;  // where the latest "*" and "**" take one character more
    bool whole_parts = false;
    std::size_t p = 0, n = 0;
    while (n < name.size()) {
        const std::string_view left = pattern.substr(p);
        if (left.starts_with("**")) {
            whole_parts = left.starts_with("**/");
            path = {p += whole_parts ? 3 : 2, n};
            part = {};
        } else if (left.starts_with('*')) {
            part = {++p, n};
        } else if (!left.empty() && (left[0] == name[n] || (left[0] == '?' && name[n] != '/'))) {
            ++p, ++n;
        } else if (part.pattern != none && name[part.name] != '/') {
            p = part.pattern, n = ++part.name;
        } else if (path.pattern != none) {
            do n = ++path.name;
            while (whole_parts && n < name.size() && name[n - 1] != '/');
            p = path.pattern;
            part = {};
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == none;
}

bool Globs::selects(const std::string& pattern, const std::string& name) {
    std::string wanted = lower_case(pattern);
    std::replace(wanted.begin(), wanted.end(), '\\', '/');
    const bool whole = wanted.find('/') != std::string::npos;
    if (wanted.ends_with('/')) wanted.pop_back();
    for (std::string rest = lower_case(name);; rest.resize(rest.rfind('/'))) {
        const std::size_t slash = rest.rfind('/');
        if (matches(wanted, whole || slash == std::string::npos ? rest : rest.substr(slash + 1))) return true;
        if (slash == std::string::npos) return false;
    }
}

bool Globs::any(const std::vector<std::string>& patterns, const std::string& name) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return selects(pattern, name); });
}
