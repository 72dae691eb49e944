// enginefs: what content and build people do every day with the engine's file system, over its exported interface.

#include <new>

#include "program.h"
#include "report.h"
#include "terminal.h"

int main(int argc, char** argv) {
    prepare_streams();
    try {
        Program program;
        const std::optional<int> ended = program.parse(argc, argv);
        return finish_output(ended ? *ended : program.run());
    } catch (const std::bad_alloc&) {
        fail_without_memory();
        return exit_failed;
    }
}
