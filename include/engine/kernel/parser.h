#pragma once

// Configuration text: commands of a keyword and its parameters, with comments, includes, constants and variables. The
// grammar is described in docs/logging.md.

#include <cstdint>
#include <string>

#include <engine/filesystem/api.h>

namespace kernel {

struct EConfigValue {
    enum TYPE : std::uint32_t {
        MISSING = 0,  // not given, or not of the declared type (then there is an error too)
        STRING = 1,
        INT = 2,
        FLOAT = 3,
        VEC3 = 4,
        VEC4 = 5,
    };
};

/// One parameter. What does not belong to its type is 0 or null.
struct SConfigValue {
    EConfigValue::TYPE type = EConfigValue::MISSING;
    std::int32_t integer = 0;
    const char* string = nullptr;  // owned by the CConfigText
    float numbers[4] = {0, 0, 0, 0};
};

/// One command, in the order of the text.
struct SConfigCommand {
    const char* keyword = "";              // as the keyword table spells it
    const SConfigValue* values = nullptr;  // one for each declared parameter
    std::uint32_t value_count = 0;
    const char* file = "";
    std::uint32_t line = 0;
    std::uint32_t column = 0;
};

/// Something that could not be used; parsing went on behind it.
struct SConfigError {
    const char* file = "";
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    const char* text = "";  // one sentence
};

/// Reads the file that an include names. False when it cannot be read.
using ConfigReader = bool (*)(const char* name, std::string& out, void* user);

/// Everything a configuration text says. Depends on nothing but its text and the included files.
class ENGINE_FS_API CConfigText {
public:
    struct Source {
        const char* text = "";
        std::uint64_t length = 0;
        const char* file = "";          // names it in commands and errors
        ConfigReader reader = nullptr;  // null: includes are errors
        void* user = nullptr;           // handed to the reader
    };

    /// Parses a text.
    ///
    /// keywords  one line "!Name(types)" for each keyword; a type is s (string), i (int), f (float), v (vec3) or q (vec4).
    /// Returns   the result, also of a text full of errors; null when there is no memory for it or the reader throws.
    /// Owns      the caller, who releases it; nothing of the texts is kept.
    /// Threads   any thread; a result may be read by several. The reader is called on the calling thread.
    /// Cost      one pass; memory in proportion to the text and the included files.
    static CConfigText* Parse(const char* keywords, const Source& source);
    void Release();

    // Commands and errors are numbered from 0.
    std::uint32_t CommandCount() const;
    const SConfigCommand& Command(std::uint32_t index) const;
    /// At most 1000 errors are kept.
    std::uint32_t ErrorCount() const;
    const SConfigError& Error(std::uint32_t index) const;

    CConfigText(const CConfigText&) = delete;
    CConfigText& operator=(const CConfigText&) = delete;

private:
    struct Data;
    explicit CConfigText(Data* data);
    ~CConfigText();
    Data* data_;
};

}  // namespace kernel
