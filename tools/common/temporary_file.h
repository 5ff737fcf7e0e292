#pragma once

#include "failure.h"

#include <filesystem>
#include <string>

namespace vsctool {

/// Name to write under until a file is complete, in the same folder: programs that watch the folder
/// never see half a file. Nothing is left behind when writing fails.
class TemporaryFile {
  public:
    explicit TemporaryFile(std::filesystem::path finalPath);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    const std::filesystem::path &Path() const { return m_path; }

    /// Gives the complete file its name once it is on the disk. Throws Failure.
    void Commit();

  private:
    std::filesystem::path m_finalPath;
    std::filesystem::path m_path;
};

/// Says that a file could not be written, and what the system and the writer say of it. It looks at
/// errno: call it right after the call that failed.
Failure CannotWrite(const std::filesystem::path &file, const std::string &writer = "");

} // namespace vsctool
