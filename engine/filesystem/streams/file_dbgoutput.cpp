#include <cstdlib>
#include <cstring>
#include <memory>

#include <engine/filesystem/streams/file.h>

#include "engine/filesystem/log/levels.h"

namespace fs {

namespace {

// Known to those who read and filter logs; not a place in this tree.
constexpr const char* log_source = "engine/filesystem/file";
constexpr int log_line = 314;

constexpr std::uint64_t stack_text_size = 4097;

struct FreeBlock {
    void operator()(char* block) const { std::free(block); }
};

void log_text(Log::ELevel::TYPE level, const char* category, const char* text) {
    _CLog(level, category, log_source, log_line, _CLFilter(logging::level_id(level)), CLLineMode::NEW_LINE, "%s", text);
}

}  // namespace

file_dbgoutput::file_dbgoutput(const char* category) : file_dbgoutput(Log::ELevel::DEBG, category) {}

file_dbgoutput::file_dbgoutput(Log::ELevel::TYPE level, const char* category)
    : level_(level), category_(category == nullptr ? "" : category) {}

file_dbgoutput::~file_dbgoutput() = default;

void file_dbgoutput::set_level_category(Log::ELevel::TYPE level, const char* category) {
    level_ = level;
    category_ = category == nullptr ? "" : category;
}

std::uint64_t file_dbgoutput::write(const void* data, std::uint64_t size) {
    if (level_ >= Log::ELevel::VERB || data == nullptr) return size;
    if (Log::Settings::Instance().GetCategoryLevel(category_.c_str()) < level_) return size;

    char small[stack_text_size];
    std::unique_ptr<char, FreeBlock> block;
    char* text = small;
    if (size >= stack_text_size) {
        if (size == UINT64_MAX) return size;
        block.reset(static_cast<char*>(std::malloc(static_cast<std::size_t>(size) + 1)));
        if (block == nullptr) return size;
        text = block.get();
    }
    std::memcpy(text, data, static_cast<std::size_t>(size));
    text[size] = '\0';
    log_text(level_, category_.c_str(), text);
    return size;
}

}  // namespace fs
