#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace vsctool::serve {

/// The folder that clients may write pictures and recordings to; to no other place.
class Folder {
  public:
    /// Throws Failure when there is none of that name.
    explicit Folder(const std::filesystem::path &path);

    const std::filesystem::path &Path() const { return m_path; }

    /// Where a file of that name lies. Throws Failure for names that lead elsewhere, or hide.
    std::filesystem::path FileOf(const std::string &name) const;

    /// Bytes that may be written there; nothing when the system does not tell.
    std::optional<uint64_t> BytesFree() const;

  private:
    std::filesystem::path m_path;
};

} // namespace vsctool::serve
