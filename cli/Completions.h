#pragma once
// Shell completion scripts for bash, zsh and fish, generated from the command
// line's own parser: option names, which options take a value, the fixed sets
// of values some accept, and problem codes for the options that name codes.
#include <CLI/CLI.hpp>
#include <string>

namespace sondrel::cli {

std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);
std::string fishCompletion(const CLI::App& app);

}  // namespace sondrel::cli
