// Typed values from outside bytes: the first bytes choose the values, the rest is the stream. Nothing that is read may
// be larger than what a 16-bit length can ask for, and a vector holds no more elements than the stream has lengths.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <engine/filesystem/streams/cached.h>
#include <engine/filesystem/streams/memory.h>

#include "fuzz/require.h"

namespace {

constexpr std::size_t control_bytes = 16;

template <class Char>
void read_pointer(fs::ifile& stream) {
    Char* text = nullptr;
    stream >> &text;
    if (text != nullptr) require(std::char_traits<Char>::length(text) <= 0xFFFF);
    std::free(text);
}

void read_vector(fs::ifile& stream, std::size_t size) {
    std::vector<std::string> texts;
    stream >> texts;
    require(texts.size() <= size / 2);
}

void read_value(fs::ifile& stream, std::uint8_t kind, std::size_t size) {
    static char narrow[0x10000];
    static wchar_t wide[0x10000];
    std::string text;
    std::wstring wide_text;
    bool truth = false;
    switch (kind % 10) {
        case 0:
            stream.get_int();
            break;
        case 1:
            stream.get_float();
            break;
        case 2:
            stream >> truth;
            break;
        case 3:
            stream >> text;
            break;
        case 4:
            stream >> wide_text;
            break;
        case 5:
            stream >> narrow;
            break;
        case 6:
            stream >> wide;
            break;
        case 7:
            read_pointer<char>(stream);
            break;
        case 8:
            read_pointer<wchar_t>(stream);
            break;
        default:
            read_vector(stream, size);
            break;
    }
    require(text.size() <= 0xFFFF && wide_text.size() <= 0xFFFF);
}

/// What was read must come back from what is written.
void round_trip(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::vector<std::string> texts = {text.substr(0, size / 2), "", text.substr(size / 2)};
    ztl::vector<unsigned char> bytes;
    fs::vectorfile stream;
    stream.open_from_memory(EFSMode::WRITE, &bytes, false);
    stream << text << texts;
    stream.seek(0, EFSSeek::BEGIN);
    std::string again;
    std::vector<std::string> all;
    stream >> again >> all;
    require(again == text && all == texts && stream.eof());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < control_bytes) return 0;
    const std::uint8_t* const bytes = data + control_bytes;
    const std::size_t length = size - control_bytes;

    fs::memfile memory;
    memory.open_from_memory(EFSMode::READ, const_cast<unsigned char*>(bytes), length, false);
    void* const block = std::malloc(length + 1);
    std::memcpy(block, bytes, length);
    fs::cachedrdfile cached(16);
    cached.open_from_handle(new FileInMemory(block, length));
    for (std::size_t i = 0; i < control_bytes; ++i) {
        read_value(memory, data[i], length);
        read_value(cached, data[i], length);
        require(memory.tell() == cached.tell());
    }
    if (length <= 0xFFFF) round_trip(bytes, length);
    return 0;
}
