// The command-line library, set up the same for every command.
#pragma once

// Plain paths are enough, and <filesystem> would double the program's size.
#define CLI11_HAS_FILESYSTEM 0
#include <CLI/CLI.hpp>  // IWYU pragma: export
