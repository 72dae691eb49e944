// Names for addresses. The dynamic loader could tell some of them, but it takes locks, and knows nothing of functions
// that are not exported; so the mappings are read from /proc and the symbol tables from the files themselves. All
// counts and offsets come from outside and are held against what is really read.
#include "engine/platform/posix/crash/symbols.h"

#include <elf.h>
#include <fcntl.h>

#include "engine/platform/posix/crash/maps_reader.h"
#include "engine/platform/posix/crash/text.h"
#include "engine/platform/posix/descriptor.h"

namespace platform {

namespace {

/// Where an address lies: the file that is mapped there, and where that file's own addresses begin.
struct Place {
    char path[512] = "";
    std::uint64_t base = 0;
};

bool find_place(std::uintptr_t address, Place& out) {
    MapsReader maps;
    Mapping mapping;
    while (maps.next(mapping)) {
        if (mapping.path[0] != '/') continue;
        if (mapping.offset == 0 && std::strcmp(mapping.path, out.path) != 0) {
            FixedText(out.path, sizeof(out.path)).add(mapping.path);
            out.base = mapping.start;
        }
        if (address >= mapping.start && address < mapping.end) return std::strcmp(mapping.path, out.path) == 0;
    }
    return false;
}

struct Symbol {
    std::uint64_t start = 0;
    std::uint64_t name_offset = 0;  // in the file
    bool found = false;
};

bool read_header(int file, Elf64_Ehdr& header) {
    if (read_fully(file, &header, sizeof(header), 0) != sizeof(header)) return false;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64;
}

bool read_section(int file, const Elf64_Ehdr& header, std::uint32_t index, Elf64_Shdr& out) {
    if (index >= header.e_shnum) return false;
    const std::uint64_t offset = header.e_shoff + static_cast<std::uint64_t>(index) * sizeof(Elf64_Shdr);
    return read_fully(file, &out, sizeof(out), offset) == sizeof(out);
}

/// The function of a symbol table that covers `address`.
Symbol search_table(int file, const Elf64_Shdr& table, const Elf64_Shdr& names, std::uint64_t address) {
    Symbol found;
    Elf64_Sym symbols[64];
    for (std::uint64_t at = 0; at < table.sh_size;) {
        const std::uint64_t wanted = table.sh_size - at < sizeof(symbols) ? table.sh_size - at : sizeof(symbols);
        const std::size_t count =
            read_fully(file, symbols, static_cast<std::size_t>(wanted), table.sh_offset + at) / sizeof(Elf64_Sym);
        if (count == 0) break;
        for (std::size_t i = 0; i < count; ++i) {
            const Elf64_Sym& symbol = symbols[i];
            if (ELF64_ST_TYPE(symbol.st_info) != STT_FUNC || symbol.st_value > address) continue;
            if (address - symbol.st_value >= symbol.st_size) continue;
            found = {.start = symbol.st_value, .name_offset = names.sh_offset + symbol.st_name, .found = true};
        }
        at += count * sizeof(Elf64_Sym);
    }
    return found;
}

Symbol search_tables(int file, const Elf64_Ehdr& header, std::uint32_t kind, std::uint64_t address) {
    for (std::uint32_t i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr table;
        Elf64_Shdr names;
        if (!read_section(file, header, i, table) || table.sh_type != kind) continue;
        if (!read_section(file, header, table.sh_link, names)) continue;
        const Symbol found = search_table(file, table, names, address);
        if (found.found) return found;
    }
    return {};
}

/// "_ZN3one3twoEv" as "one::two": enough to be read, without the memory that the real thing takes.
void add_readable(FixedText& out, const char* name) {
    const char* at = name;
    if (std::strncmp(at, "_Z", 2) != 0) {
        out.add(name);
        return;
    }
    at += 2;
    while (*at == 'N' || *at == 'L' || *at == 'K') ++at;
    bool is_first = true;
    while (*at >= '1' && *at <= '9') {
        std::size_t length = 0;
        while (*at >= '0' && *at <= '9' && length < 100'000)
            length = length * 10 + static_cast<std::size_t>(*at++ - '0');
        length = strnlen(at, length);
        if (!is_first) out.add("::");
        if (std::strncmp(at, "_GLOBAL__N_1", 12) == 0) {
            out.add("(anonymous)");
        } else {
            out.add(at, length);
        }
        is_first = false;
        at += length;
        while (*at == 'L') ++at;
    }
    if (is_first) out.add(name);
}

void add_function(FixedText& text, const char* path, std::uint64_t base, std::uint64_t address) {
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    Elf64_Ehdr header;
    if (!file.valid() || !read_header(file.number(), header)) return;
    const std::uint64_t in_file = header.e_type == ET_EXEC ? address : address - base;
    Symbol symbol = search_tables(file.number(), header, SHT_SYMTAB, in_file);
    if (!symbol.found) symbol = search_tables(file.number(), header, SHT_DYNSYM, in_file);
    if (!symbol.found) return;
    char name[256];
    name[read_fully(file.number(), name, sizeof(name) - 1, symbol.name_offset)] = '\0';
    text.add(" (");
    add_readable(text, name);
    text.add("+").add_hex(in_file - symbol.start).add(")");
}

const char* file_name(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

}  // namespace

void describe_address(std::uintptr_t address, bool is_return, char* out, std::size_t capacity) {
    FixedText text(out, capacity);
    text.add_hex(address, 16);
    Place place;
    if (!find_place(address, place)) return;
    text.add(" ").add(file_name(place.path)).add("+").add_hex(address - place.base);
    // A call may be the last thing in its function; what it returns to then belongs to the next one.
    add_function(text, place.path, place.base, is_return && address > place.base ? address - 1 : address);
}

}  // namespace platform
