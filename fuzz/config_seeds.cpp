// First inputs for config_fuzz: every form of the grammar once, and every kind of damage once.
#include <cstdio>
#include <fstream>
#include <string>

namespace {

constexpr const char* seeds[] = {
    "!Permit(VE?\?, 1, 0)\r\n!Level(Verbose5) // comment\n/* another\n one */ Number(-1.5e3)\n",
    "Place((1, 2.5, -3), (1,2,3,4));Stop Stop()\n",
    "Level(\"a, (b) \\\"c\\\" \\\\ \\x41\\t\\q\")\n",
    "!const(int, LIMIT, 0x7f) !const(vec3, UP, (0,1,0)) Permit(a, LIMIT, limit) Place(UP)\n",
    "!set(dir, out) !set(file, $dir/x) Level(\"${file}.log $$dir\") Level($nobody)\n",
    "!include \"\x80rest\"\nLevel(a) include(\x10)\nStop\n",
    "Unknown(a, (b), \"c)\") some words\nLevel(a b)\nLevel(\nLevel(\"open\n/* open",
    "\xEF\xBB\xBFLevel(a",
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    int number = 0;
    for (const char* seed : seeds) {
        std::ofstream file(std::string(argv[1]) + "/seed_" + std::to_string(number++), std::ios::binary);
        file << seed;
        if (!file.flush()) return 1;
    }
    std::printf("%d seeds\n", number);
    return 0;
}
