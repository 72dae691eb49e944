// The exported face of the configuration parser.
#include <new>

#include <engine/kernel/parser.h>

#include "engine/kernel/parser/parser.h"

namespace kernel {

struct CConfigText::Data {
    config::Result result;
};

CConfigText::CConfigText(Data* data) : data_(data) {}
CConfigText::~CConfigText() { delete data_; }

CConfigText* CConfigText::Parse(const char* keywords, const Source& source) try {
    auto data = std::make_unique<Data>();
    config::Result& result = data->result;
    const config::KeywordTable table(keywords == nullptr ? "" : keywords, result.arena);
    const char* const file = result.arena.store(source.file == nullptr ? "" : source.file);
    const std::string_view text(source.text == nullptr ? "" : source.text, source.text == nullptr ? 0 : source.length);
    config::Session session{
        .keywords = table, .result = result, .symbols = {}, .reader = source.reader, .user = source.user};
    config::FileParser(session, text, file, nullptr).parse();
    result.link_values();
    auto* const parsed = new CConfigText(data.get());
    static_cast<void>(data.release());
    return parsed;
} catch (const std::bad_alloc&) {
    return nullptr;
}

void CConfigText::Release() { delete this; }

std::uint32_t CConfigText::CommandCount() const { return static_cast<std::uint32_t>(data_->result.commands.size()); }
const SConfigCommand& CConfigText::Command(std::uint32_t index) const { return data_->result.commands[index]; }
std::uint32_t CConfigText::ErrorCount() const { return static_cast<std::uint32_t>(data_->result.errors.size()); }
const SConfigError& CConfigText::Error(std::uint32_t index) const { return data_->result.errors[index]; }

}  // namespace kernel
