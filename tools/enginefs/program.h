#pragma once

#include <optional>

#include <CLI/CLI.hpp>

#include "command.h"

/// A command line and what it asks for.
class Program {
public:
    Program();

    /// Reads the command line; the status to end with when it is wrong or asks for help alone.
    std::optional<int> parse(int argc, const char* const* argv);
    /// Does what it asks for; may be called again. The status to end with; what failed is said on standard error.
    int run() const;

private:
    bool run_chosen() const;

    CLI::App app_;
    CommandLine line_;
};
