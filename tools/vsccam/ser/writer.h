#pragma once

#include "ser/disk_file.h"
#include "ser/header.h"

#include <chrono>
#include <filesystem>
#include <span>
#include <vector>

namespace vsctool {

/// Where the times of a recording lie while it is under way; a killed one leaves them to RepairSer.
std::filesystem::path SerTimesBeside(const std::filesystem::path &file);

/// A SER file that grows. It lies under its own name from the beginning and can be read at any
/// moment: its header tells the frames that were there a second ago. So a recording outlives the
/// death of the program, and one that fails keeps every frame that was written whole. All functions
/// throw Failure.
class SerWriter {
  public:
    /// @param header  without count and times; the recording begins with its first frame
    SerWriter(const std::filesystem::path &path, SerHeader header, bool overwrite);
    /// Removes the file when no frame came.
    ~SerWriter();
    SerWriter(const SerWriter &) = delete;
    SerWriter &operator=(const SerWriter &) = delete;

    int64_t Frames() const { return static_cast<int64_t>(m_times.size()); }

    void Add(std::span<const uint8_t> frame, UtcTime at);

    /// Makes the header tell the frames that are there. Add does so twice a second; to be called
    /// when no frame comes for a while.
    void Checkpoint();

    /// Writes the times behind the frames. To be called after a failure, too: what was written of
    /// another frame is cut off.
    void Close();

  private:
    int64_t End() const;
    void Begin(UtcTime at);
    void WriteCount();
    void SaveTimes();
    void PaceDisk();

    SerHeader m_header;
    DiskFile m_file;
    std::optional<DiskFile> m_timesFile; // see SerTimesBeside; not open where it cannot be made
    bool m_closed = false;
    std::vector<SerTicks> m_times;
    size_t m_timesSaved = 0;
    std::chrono::steady_clock::time_point m_nextCheckpoint;
    int64_t m_onDisk = 0;   // bytes that the system has written to the disk ...
    int64_t m_underWay = 0; // ... and those that it was told to write
};

} // namespace vsctool
