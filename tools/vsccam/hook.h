#pragma once

#include <filesystem>
#include <string>

namespace vsctool {

/// Runs a command of the user's shell, with the file as "$1" and as VSCCAM_FILE, and waits for it.
/// Throws Failure when a signal comes meanwhile; the hook and all that it started are ended then.
/// @return its exit status, -1 when it could not be run
int RunHook(const std::string &command, const std::filesystem::path &file);

} // namespace vsctool
