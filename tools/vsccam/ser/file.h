#pragma once

#include "ser/disk_file.h"
#include "ser/header.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// A SER file of whatever origin: each number in it may be wrong, and it may end anywhere. All
/// functions throw Failure.
class SerFile {
  public:
    enum class Access { Read, Write };

    explicit SerFile(const std::filesystem::path &path, Access access = Access::Read);

    const SerHeader &Header() const { return m_header; }
    int64_t FrameBytes() const { return FrameBytesOf(m_header); }
    int64_t Size() const { return m_size; }

    /// Whole frames that are there, whatever the header tells.
    int64_t Frames() const { return m_frames; }
    /// Times of frames, from the first one on, that are there and can be meant.
    int64_t Times() const { return m_times; }
    SerTicks TimeOf(int64_t frame) const;
    /// Where a frame begins; behind the last one, where the times do.
    int64_t Place(int64_t frame) const;

    /// What is wrong with it, in a sentence each; nothing in a sound file.
    std::vector<std::string> Faults() const;

    DiskFile &Disk() { return m_file; }
    const DiskFile &Disk() const { return m_file; }

  private:
    void FindFrames();

    DiskFile m_file;
    int64_t m_size = 0;
    SerHeader m_header;
    int64_t m_frames = 0;
    int64_t m_times = 0;
};

/// When the frames came.
struct SerTiming {
    SerTicks first = 0;
    SerTicks last = 0;
    double meanS = 0; // from frame to frame
    double longestS = 0;
    int64_t longestAfter = 0; // number of the frame before the longest gap, from 1
    int64_t gaps = 0;         // of more than one and a half times the mean
};

/// Nothing for a file with fewer than two times.
std::optional<SerTiming> TimingOf(const SerFile &file);

/// What a repair did.
struct SerRepair {
    int64_t countBefore = 0;
    int64_t frames = 0;
    int64_t bytesCut = 0;       // behind the last whole frame
    int64_t timesRecovered = 0; // that the recording had put beside the file
    int64_t timesEstimated = 0; // evenly, from the time of the others, or of the file
};

/// Sets the count by what is there, and gives each frame its time.
SerRepair RepairSer(const std::filesystem::path &path);

/// Copies frames, numbered from 0, into a file of their own, which appears when it is complete.
void CopyFrames(const SerFile &from, int64_t first, int64_t last, const std::filesystem::path &to);

} // namespace vsctool
