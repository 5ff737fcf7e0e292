#pragma once

#include "units.h"

#include <cstdint>
#include <filesystem>
#include <span>

namespace vsctool {

/// Throws Failure when there is a file of this name.
void RequireFree(const std::filesystem::path &path);

/// An open file. What its functions throw is Failure.
class DiskFile {
  public:
    /// @param flags  those of open(2)
    DiskFile(std::filesystem::path path, int flags);
    ~DiskFile();
    DiskFile(const DiskFile &) = delete;
    DiskFile &operator=(const DiskFile &) = delete;

    /// When it is not, errno tells why, right after it was made.
    bool IsOpen() const { return m_file >= 0; }
    bool IsRegular() const;
    const std::filesystem::path &Path() const { return m_path; }
    int Descriptor() const { return m_file; }
    int64_t Size() const;
    UtcTime LastChanged() const;
    /// Whether it has no name any more.
    bool IsRemoved() const;

    /// Throws also when the file ends before.
    void Read(int64_t offset, std::span<uint8_t> bytes) const;
    /// @return false, with the reason in errno, unless all was written
    bool TryWrite(int64_t offset, std::span<const uint8_t> bytes);
    void Write(int64_t offset, std::span<const uint8_t> bytes);
    void Cut(int64_t size);
    void ReachDisk();

  private:
    std::filesystem::path m_path;
    int m_file;
};

} // namespace vsctool
