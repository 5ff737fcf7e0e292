#pragma once

#include <stdexcept>
#include <string>

namespace vsctool {

/// How the program ends; scripts rely on these numbers.
enum class Exit {
    kOk = 0,
    kFailure = 1,
    kUsage = 2,
    kNoCamera = 3,
    kPermission = 4,
    kBusy = 5,
    kCameraLost = 6,
    kNoFrame = 7,
    kTooManyDrops = 8,
    kFile = 9,
    kNotSupported = 10,
    kUnhealthy = 11, // a check failed
    kSignal = 128,   // plus the number of the signal
};

/// The same in words, for the help.
struct ExitWords {
    Exit code;
    const char *words;
};
inline constexpr ExitWords kExitWords[] = {
    {Exit::kOk, "done"},
    {Exit::kFailure, "other failure"},
    {Exit::kUsage, "wrong usage"},
    {Exit::kNoCamera, "no (such) camera"},
    {Exit::kPermission, "no permission"},
    {Exit::kBusy, "in use by another program"},
    {Exit::kCameraLost, "camera lost"},
    {Exit::kNoFrame, "no frame in time"},
    {Exit::kTooManyDrops, "too many frames dropped"},
    {Exit::kFile, "file or disk"},
    {Exit::kNotSupported, "not with this model"},
    {Exit::kUnhealthy, "a check failed"},
};

/// Ends the program with an exit code and a plain sentence that names what to do next.
class Failure : public std::runtime_error {
  public:
    Failure(Exit code, const std::string &message) : Failure(static_cast<int>(code), message) {}
    Failure(int code, const std::string &message) : std::runtime_error(message), m_code(code) {}

    int Code() const { return m_code; }

  private:
    int m_code;
};

} // namespace vsctool
