#include "globs.h"

#include <algorithm>

#include "names.h"

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
