#include "ser/writer.h"

#include "failure.h"
#include "temporary_file.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <utility>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kCheckpointInterval = 500ms; // the count is never a second behind

// Left to itself the system gathers what is written, up to a fifth of the memory, and then holds
// the writer up for seconds. Instead it writes steadily, and two of these are in memory at most.
constexpr int64_t kPaceBytes = 16 << 20;

std::vector<uint8_t> InBytes(std::span<const SerTicks> times)
{
    std::vector<uint8_t> bytes(times.size() * kSerTimeBytes);
    for (size_t i = 0; i < times.size(); ++i)
        StoreLow(times[i], &bytes[i * kSerTimeBytes]);
    return bytes;
}

/// Right after an attempt to create a file.
void CheckCreated(const DiskFile &file)
{
    if (!file.IsOpen() && errno == EEXIST)
        RequireFree(file.Path());
    if (!file.IsOpen())
        throw CannotWrite(file.Path());
    if (!file.IsRegular())
        throw Failure(Exit::kFile, fmt::format("{} is no regular file", file.Path().string()));
}

} // namespace

std::filesystem::path SerTimesBeside(const std::filesystem::path &file)
{
    return file.parent_path() / fmt::format(".{}.times", file.filename().string());
}

SerWriter::SerWriter(const std::filesystem::path &path, SerHeader header, bool overwrite)
    : m_header(std::move(header)),
      // A pipe that nobody reads is no reason to wait.
      m_file(path, O_WRONLY | O_CREAT | O_NONBLOCK | (overwrite ? 0 : O_EXCL))
{
    CheckCreated(m_file);
    m_file.Cut(0);
    m_timesFile.emplace(SerTimesBeside(path), O_WRONLY | O_CREAT | O_TRUNC);
}

SerWriter::~SerWriter()
{
    std::error_code ignored; // they are there or not
    if (m_times.empty())
        std::filesystem::remove(m_file.Path(), ignored);
    if (m_times.empty() || m_closed)
        std::filesystem::remove(m_timesFile->Path(), ignored);
}

int64_t SerWriter::End() const
{
    return static_cast<int64_t>(kSerHeaderBytes) + Frames() * FrameBytesOf(m_header);
}

void SerWriter::Begin(UtcTime at)
{
    SetBegin(m_header, at);
    m_file.Write(0, Encode(m_header));
    m_nextCheckpoint = SteadyClock::now() + kCheckpointInterval;
}

void SerWriter::Add(std::span<const uint8_t> frame, UtcTime at)
{
    if (m_times.empty())
        Begin(at);
    m_file.Write(End(), frame);
    m_times.push_back(SerTicksOf(at));
    PaceDisk();
    if (SteadyClock::now() >= m_nextCheckpoint)
        Checkpoint();
}

void SerWriter::WriteCount()
{
    std::array<uint8_t, sizeof m_header.frames> count{};
    StoreLow(static_cast<int32_t>(Frames()), count.data());
    m_file.Write(kSerCountAt, count);
}

/// Without them a repair has to estimate: no reason to end the recording.
void SerWriter::SaveTimes()
{
    const std::span unsaved = std::span(m_times).subspan(m_timesSaved);
    const auto offset = static_cast<int64_t>(m_timesSaved * kSerTimeBytes);
    if (m_timesFile->IsOpen() && m_timesFile->TryWrite(offset, InBytes(unsaved)))
        m_timesSaved = m_times.size();
}

void SerWriter::Checkpoint()
{
    if (m_times.empty())
        return;
    WriteCount();
    SaveTimes();
    m_nextCheckpoint = SteadyClock::now() + kCheckpointInterval;
    if (m_file.IsRemoved())
        throw Failure(Exit::kFile,
                      fmt::format("{} was removed while it was recorded", m_file.Path().string()));
}

/// File systems that know no such order refuse it, and need none.
void SerWriter::PaceDisk()
{
    const int64_t end = End();
    if (end - m_underWay < kPaceBytes)
        return;
    const int file = m_file.Descriptor();
    (void)sync_file_range(file, m_underWay, end - m_underWay, SYNC_FILE_RANGE_WRITE);
    if (const int64_t length = m_underWay - m_onDisk; length > 0) {
        (void)sync_file_range(file, m_onDisk, length,
                              SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE |
                                  SYNC_FILE_RANGE_WAIT_AFTER);
        (void)posix_fadvise(file, m_onDisk, length, POSIX_FADV_DONTNEED);
    }
    m_onDisk = m_underWay;
    m_underWay = end;
}

void SerWriter::Close()
{
    if (m_times.empty())
        return;
    WriteCount();
    m_file.Cut(End()); // makes room for the times, too, on a disk that is full
    m_file.Write(End(), InBytes(m_times));
    m_file.ReachDisk();
    m_closed = true;
}

} // namespace vsctool
