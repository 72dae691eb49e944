// Members of every header form, with bytes in front that say how they are read.
#include <cstdio>
#include <string>

#include <engine/filesystem/streams/memory.h>

using namespace std::string_literals;

namespace {

bool write_seed(const std::string& folder, int number, const std::string& bytes) {
    std::FILE* const file = std::fopen((folder + "/member" + std::to_string(number)).c_str(), "wb");
    if (file == nullptr) return false;
    const bool whole = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && whole;
}

/// Deflate data and trailer of `plain`.
std::string packed(const std::string& plain) {
    ztl::vector<unsigned char> bytes;
    fs::vectorfile stream;
    stream.open_from_memory(EFSMode::WRITE, &bytes, true);
    stream.write(plain.data(), plain.size());
    stream.close();
    return {bytes.begin() + 10, bytes.end()};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::string mixed;
    for (int i = 0; i < 900; ++i) mixed += "line " + std::to_string(i * i % 977) + static_cast<char>(i * 37);
    const std::string bodies[] = {packed(""), packed("abc"), packed(std::string(30000, 'x')), packed(mixed)};
    const std::string fields[] = {"\0"s, "\x04"s, "\x08"s, "\x10"s, "\x02"s, "\x1F"s};
    const std::string rests[] = {"", "\3\0abc"s, "name\0"s, "remark\0"s, "\xFF\xFF"s, "\1\0xname\0remark\0\1\2"s};
    int number = 0;
    for (const std::string& body : bodies) {
        for (int form = 0; form < 6; ++form) {
            const std::string control = "\x10\x21\xFE\x43\x7D\x04\x91\xFF"s;
            const std::string header = "\x1F\x8B\x08"s + fields[form] + std::string(6, '\0') + rests[form];
            if (!write_seed(argv[1], number++, control + header + body)) return 1;
        }
    }
    return 0;
}
