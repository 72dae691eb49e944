#include "names.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

namespace stdfs = std::filesystem;

namespace {

/// Where the next character begins, in UTF-8.
std::size_t behind_character(std::string_view text, std::size_t at) {
    do ++at;
    while (at < text.size() && (text[at] & 0xC0) == 0x80);
    return at;
}

}  // namespace

std::string lower_case(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string normalised(const std::string& name, bool keep_case) {
    std::string out(name.size() + 1, '\0');
    fs::path_normalize(out.data(), name.c_str(), keep_case);
    out.resize(out.find('\0'));
    return out;
}

std::string full_native_path(const std::string& path) {
    std::error_code error;
    stdfs::path full = stdfs::absolute(fs::to_path(path), error).lexically_normal();
    if (!full.has_filename() && full.has_relative_path()) full = full.parent_path();  // a "/" at the end
    return error ? path : fs::from_path(full);
}

std::string part_of(const std::string& pack, std::size_t number) {
    stdfs::path path = fs::to_path(pack);
    const stdfs::path extension = path.extension();
    return number == 1 ? pack : fs::from_path(path.replace_extension("." + std::to_string(number)) += extension);
}

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
        } else if (left.starts_with('?') && name[n] != '/') {
            ++p, n = behind_character(name, n);
        } else if (left.starts_with(name[n])) {
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

bool is_pattern(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

bool selects(const std::string& pattern, const std::string& name) {
    std::string wanted = lower_case(pattern);
    std::ranges::replace(wanted, '\\', '/');
    const bool whole = wanted.find('/') != std::string::npos;
    if (wanted.ends_with('/')) wanted.pop_back();
    for (std::string rest = lower_case(name);; rest.resize(rest.rfind('/'))) {
        const std::size_t slash = rest.rfind('/');
        if (matches(wanted, whole || slash == std::string::npos ? rest : rest.substr(slash + 1))) return true;
        if (slash == std::string::npos) return false;
    }
}

std::vector<SFsSourceInfo> all_sources() {
    return ask("the sources", [] {
        std::vector<SFsSourceInfo> sources;
        fs::get_sources(sources);
        return sources;
    });
}

std::vector<SFsSourceInfo> holders_of(const std::string& name, FFSOpenFlags::FLAGS flags) {
    std::vector<SFsSourceInfo> holders = ask(name, [&] {
        std::vector<SFsSourceInfo> sources;
        fs::find_holders(name.c_str(), sources, flags);
        return sources;
    });
    // The disk itself has directories too, and shows those of a root that is the current one.
    if (!holders.empty() && place_of(holders.back()).empty() && is_directory(name) && fs::does_dir_exist(name.c_str()))
        holders.pop_back();
    return holders;
}

std::string place_of(const SFsSourceInfo& source) { return source.path_name + source.file_name; }

std::string place_on_disk(const std::string& name) {
    fs::string place;
    return ask(name, [&] { return fs::native_path(name.c_str(), place); }) ? place : "";
}

std::string told_name(const std::string& name, const NameForm& form) {
    if (!form.native && !form.spelling) return name;
    std::string place = place_on_disk(name);
    if (form.native && !place.empty()) return place;
    if (form.native) return place_of(holders_of(name).at(0)) + "/" + fs::root_path(name.c_str());
    const std::string clean = normalised(name);
    return lower_case(place).ends_with(clean) ? place.substr(place.size() - clean.size()) : name;
}

std::vector<std::string> list_files(const char* dir, const char* mask, bool recursive) {
    const std::string told = dir != nullptr ? dir : "the names of all files";
    const fs::found_files found = ask(told, [&] { return fs::find_files(dir, mask, recursive); });
    return {found.begin(), found.end()};
}

bool expand(std::vector<std::string>& names) {
    bool good = true;
    std::vector<std::string> all;
    for (const std::string& name : names) {
        if (!is_pattern(name) || ask(name, [&] { return fs::exists(name.c_str(), FFSOpenFlags::WHOLE_NAME); })) {
            all.push_back(name);
            continue;
        }
        const std::size_t before = all.size();
        const std::string pattern = normalised(name);
        for (const std::string& file : list_files())
            if (matches(pattern, file)) all.push_back(file);
        if (all.size() == before) good = fail(name, "no file matches");
    }
    names = std::move(all);
    return good;
}

bool for_each_file(std::vector<std::string> names, const std::function<bool(const std::string&)>& run) {
    const bool good = expand(names);
    return for_all(names, run) && good;
}

bool for_each_target(std::vector<std::string> names, const std::function<bool(const FromTo&)>& run, Rename rename) {
    std::string to = names.back();
    names.pop_back();
    std::ranges::replace(to, '\\', '/');
    if (to == "." || to == "/")
        to = "./";  // the root of all sources
    else if (is_directory(to) && !to.ends_with('/'))
        to += '/';
    const bool is_into = to.ends_with('/'), good = expand(names);
    if (names.size() > 1 && !is_into) return fail(to, "it is no directory, which several files need");
    std::set<std::string> made;
    const auto run_one = [&](const std::string& name) {
        const std::string own = name.substr(name.find_last_of("/\\") + 1);
        const std::string target = is_into ? to + (rename != nullptr ? rename(own) : own) : to;
        if (!made.insert(normalised(target)).second) return fail(name, target + " was just made of another file");
        return run({name, target});
    };
    return for_all(names, run_one) && good;
}

bool is_listed(const std::string& name) {
    const auto is_listing = [](const SFsSourceInfo& holder) { return !place_of(holder).empty(); };
    return std::ranges::any_of(holders_of(name, FFSOpenFlags::WHOLE_NAME), is_listing);
}

bool is_indexed(const std::string& name) {
    const std::string clean = normalised(name);
    return !clean.empty() && clean[0] != '/' && ask(name, [&] { return fs::search_dir(clean.c_str()); }) != nullptr;
}

bool is_directory(const std::string& name) {
    return is_indexed(name) || (fs::is_full_path(name.c_str()) && fs::does_dir_exist(name.c_str()));
}

bool fail_not_held(const std::string& name, const std::string& if_directory) {
    return fail(name, is_directory(name) ? if_directory : "no source holds it");
}

bool names_itself(const std::string& name) {
    if (const std::string exact = exact_spelling(name); !exact.empty())
        return fail(name, "it finds " + place_on_disk(name) + ", which differs from it in case alone");
    const bool is_full = fs::is_full_path(name.c_str());
    if (is_full ? fs::exists(name.c_str(), FFSOpenFlags::WHOLE_NAME) : is_listed(name)) return true;
    const std::vector<SFsSourceInfo> holders = holders_of(name);
    if (holders.empty()) return true;
    if (place_of(holders[0]).empty())
        return fail(name, "no source holds it, but the current directory does; give the full path, or --no-fallback");
    return fail(name, "it finds " + fs::root_path(name.c_str()) + "; give that name to change it");
}

bool can_change(const std::string& name, const std::string& if_directory) {
    const std::vector<SFsSourceInfo> holders = holders_of(name);
    if (holders.empty()) return fail_not_held(name, if_directory);
    return names_itself(name) && ((holders[0].writable && !holders[0].is_protected) ||
                                  fail(name, place_of(holders[0]) + " holds it, and cannot be written to"));
}

std::string exact_spelling(const std::string& name) {
    const std::string found = place_on_disk(name), typed = normalised(name, /*keep_case*/ true);
    if (found.size() < typed.size() || found.ends_with(typed) || fs::is_full_path(name.c_str())) return "";
    const std::string exact = found.substr(0, found.size() - typed.size()) + typed;
    std::error_code error;
    const bool is_other = lower_case(exact) == lower_case(found) && stdfs::exists(fs::to_path(exact), error) &&
                          !stdfs::equivalent(fs::to_path(exact), fs::to_path(found), error);
    return is_other && !error ? exact : "";
}
