#pragma once
/// The files the command driver opens for every input: corpus files read
/// in place, and scratch copies opened for update.

#include <string>
#include <utility>
#include <vector>

namespace tiffgate::fuzz {

/// The corpus files that exist; without the corpus the program runs
/// against the scratch files alone.
std::vector<std::string> command_read_files();

/// The files copied into the scratch directory for every input, by name,
/// with their bytes.
std::vector<std::pair<std::string, std::string>> command_copied_files();

}  // namespace tiffgate::fuzz
