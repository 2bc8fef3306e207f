#pragma once
/// tiffgate info FILE...: a readable summary of every directory of each
/// file, gathered through the gateway's commands only.

#include <ostream>
#include <string>
#include <vector>

namespace tiffgate::shell {

/// Describes each file on out, warnings and errors on err; returns the
/// exit status (0, or 1 when anything failed).
int run_info(const std::vector<std::string>& files, std::ostream& out, std::ostream& err);

}  // namespace tiffgate::shell
