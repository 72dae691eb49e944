// cat, cp: what is in a file.

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "output.h"
#include "report.h"

namespace {

bool cat(const Name& given) {
    const fs::file_ptr file = open_file(given.name);
    return file != nullptr && read_to_end(file.get(), given.name, print_bytes);
}

bool cp(const FromTo& given) { return copy_file(given, "cp ", FFSOpenFlags::NONE); }

}  // namespace

void add_content_commands(Commands& commands) {
    commands.add("cat", "Write the content of files to standard output", "NAME", cat);

    commands.add_moving("cp", "Copy files into the root, or over files that a source holds", cp);
}
