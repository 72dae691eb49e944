#include <engine/filesystem/contract/source.h>

CFSSource::CFSSource() = default;
CFSSource::~CFSSource() = default;

void CFSSource::mark_installed_all(bool) {}
void CFSSource::mark_installed(const fs::path&, bool) {}
int CFSSource::is_installed(const fs::path&) { return 0; }
void CFSSource::dump(ztl::vector<fs::string>&, const char*) {}
const char* CFSSource::root_dir() { return ""; }
