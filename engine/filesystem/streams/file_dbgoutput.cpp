#include <algorithm>
#include <limits>

#include <engine/filesystem/streams/file.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/log/levels.h"

namespace fs {

namespace {

// Known to those who read and filter logs; not a place in this tree.
constexpr const char* log_source = "engine/filesystem/file";
constexpr int log_line = 314;

}  // namespace

file_dbgoutput::file_dbgoutput(const char* category) : file_dbgoutput(Log::ELevel::DEBG, category) {}

file_dbgoutput::file_dbgoutput(Log::ELevel::TYPE level, const char* category) : level_(level) {
    set_level_category(level, category);
}

file_dbgoutput::~file_dbgoutput() = default;

void file_dbgoutput::set_level_category(Log::ELevel::TYPE level, const char* category) {
    guarded(nullptr, [&] {
        category_ = category == nullptr ? "" : category;
        level_ = level;
    });
}

std::uint64_t file_dbgoutput::write(const void* data, std::uint64_t size) {
    if (level_ >= Log::ELevel::VERB || data == nullptr) return size;
    if (Log::Settings::Instance().GetCategoryLevel(category_.c_str()) < level_) return size;

    const auto length = static_cast<int>(std::min<std::uint64_t>(size, std::numeric_limits<int>::max()));
    _CLog(level_, category_.c_str(), log_source, log_line, _CLFilter(logging::level_id(level_)), CLLineMode::NEW_LINE,
          "%.*s", length, static_cast<const char*>(data));
    return size;
}

}  // namespace fs
