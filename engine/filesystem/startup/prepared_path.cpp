#include "engine/filesystem/startup/prepared_path.h"

#include <cstring>
#include <string_view>

#include "engine/filesystem/contract/path.h"
#include "engine/platform/directories.h"

namespace fs {

PreparedPath::PreparedPath(const char* path) : text_{} {
    const std::size_t length = path != nullptr ? std::strlen(path) : 0;
    is_too_long_ = length >= sizeof(text_);
    if (is_too_long_) return;
    std::memcpy(text_, path != nullptr ? path : "", length + 1);
    if (length > 1 && is_separator(text_[length - 1])) text_[length - 1] = '\0';
    // Once, so that one directory has one path however it was told.
    if (is_full_path(text_)) platform::expand_short_names(text_, text_);
    path_normalize(text_, text_, false);
}

void PreparedPath::append_slash() {
    const std::size_t length = std::strlen(text_);
    is_too_long_ |= length + 1 >= sizeof(text_);
    if (is_too_long_) return;
    text_[length] = '/';
    text_[length + 1] = '\0';
}

bool PreparedPath::names_pack() const {
    const std::string_view text(text_);
    const std::size_t dot = text.rfind('.');
    const std::string_view ext = dot != std::string_view::npos ? text.substr(dot) : "";
    return ext == ".pak" || ext == ".mpak";
}

fs::path PreparedPath::as_source_path() const {
    return names_pack() ? lookup_name(text_) : directory_name(text_, true);
}

}  // namespace fs
