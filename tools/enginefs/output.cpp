#include "output.h"

#include <engine/filesystem.h>

#include "report.h"

Output::Output(const std::string& name) : name_(name) {
    fs::clear_error();
    file_.reset(fs::open(name.c_str(), EFSMode::WRITE));
}

Output::~Output() {
    if (file_ == nullptr || finished_) return;
    file_.reset();
    if (!fs::rem_file(name_.c_str())) fail_with_last_error(name_, "it is incomplete and cannot be removed");
}
