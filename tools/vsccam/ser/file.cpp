#include "ser/file.h"

#include "failure.h"
#include "ser/writer.h"
#include "stop_signals.h"
#include "temporary_file.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr auto kHeaderBytes = static_cast<int64_t>(kSerHeaderBytes);
constexpr auto kTimeBytes = static_cast<int64_t>(kSerTimeBytes);
constexpr SerTicks kSecond = 10'000'000;
constexpr SerTicks kDay = 86'400 * kSecond;
constexpr SerTicks kYear1990 = 627'667'488'000'000'000;
constexpr SerTicks kYear2200 = 693'937'152'000'000'000;
constexpr int64_t kTimesAtOnce = 8192;
constexpr int64_t kCopyBytes = 1 << 20;
constexpr double kGap = 1.5; // times the mean

/// Times that can be meant in one file. Other software may write those of the clock on the wall.
struct TimeSpan {
    SerTicks from = kYear1990;
    SerTicks to = kYear2200;

    explicit TimeSpan(const SerHeader &header)
    {
        if (!Has(header.utcTime))
            return;
        from = header.utcTime - kDay;
        to = header.utcTime + 366 * kDay;
    }
    bool Has(SerTicks time) const { return time >= from && time <= to; }
};

/// Times that follow each other in a file, read by the block.
class TimeReader {
  public:
    TimeReader(const DiskFile &file, int64_t offset, int64_t count)
        : m_file(file), m_offset(offset), m_left(count)
    {
    }

    std::optional<SerTicks> Next()
    {
        if (m_at == m_block.size() && !Fill())
            return std::nullopt;
        return LoadLow<SerTicks>(&m_block[std::exchange(m_at, m_at + kSerTimeBytes)]);
    }

  private:
    bool Fill()
    {
        const int64_t count = std::min(m_left, kTimesAtOnce);
        m_block.resize(static_cast<size_t>(count) * kSerTimeBytes);
        m_file.Read(m_offset, m_block);
        m_offset += count * kTimeBytes;
        m_left -= count;
        m_at = 0;
        return count > 0;
    }

    const DiskFile &m_file;
    int64_t m_offset;
    int64_t m_left;
    std::vector<uint8_t> m_block;
    size_t m_at = 0;
};

/// How many of the numbers from `offset` on can be times.
int64_t CountTimes(const DiskFile &file, const SerHeader &header, int64_t offset, int64_t most)
{
    const TimeSpan span(header);
    TimeReader times(file, offset, std::min(most, (file.Size() - offset) / kTimeBytes));
    int64_t count = 0;
    for (auto time = times.Next(); time && span.Has(*time); time = times.Next())
        ++count;
    return count;
}

} // namespace

SerFile::SerFile(const std::filesystem::path &path, Access access)
    // A pipe that nobody writes to is no reason to wait.
    : m_file(path, (access == Access::Read ? O_RDONLY : O_RDWR) | O_NONBLOCK)
{
    const auto fail = [&](const std::string &why) {
        throw Failure(Exit::kFile, fmt::format("{}: {}", path.string(), why));
    };
    if (!m_file.IsOpen())
        fail(std::generic_category().message(errno));
    if (!m_file.IsRegular())
        fail("no regular file");
    m_size = m_file.Size();
    try {
        std::vector<uint8_t> bytes(static_cast<size_t>(std::min(m_size, kHeaderBytes)));
        m_file.Read(0, bytes);
        m_header = DecodeSerHeader(bytes);
        FindFrames();
    } catch (const Failure &failure) {
        fail(failure.what());
    }
}

/// The size decides, together with the count where it fits or times stand behind so many frames.
void SerFile::FindFrames()
{
    const int64_t body = m_size - kHeaderBytes;
    const int64_t timedBytes = FrameBytes() + kTimeBytes;
    const int64_t told = m_header.frames;
    const int64_t whole = body / FrameBytes();
    const int64_t timed = body % timedBytes == 0 ? body / timedBytes : 0;
    const auto timesBehind = [this](int64_t frames) {
        return CountTimes(m_file, m_header, Place(frames), frames);
    };
    m_times = told <= whole ? timesBehind(told) : 0;
    if (m_times > 0 || (told == whole && body % FrameBytes() == 0))
        m_frames = told;
    else if (timed > 0 && timesBehind(timed) == timed)
        m_frames = m_times = timed;
    else
        m_frames = whole;
    if (m_frames > INT32_MAX)
        throw Failure(Exit::kFile, "more frames than a SER file can have");
}

int64_t SerFile::Place(int64_t frame) const
{
    return kHeaderBytes + frame * FrameBytes();
}

SerTicks SerFile::TimeOf(int64_t frame) const
{
    std::array<uint8_t, kSerTimeBytes> bytes{};
    m_file.Read(Place(m_frames) + frame * kTimeBytes, bytes);
    return LoadLow<SerTicks>(bytes.data());
}

std::vector<std::string> SerFile::Faults() const
{
    std::vector<std::string> faults;
    if (m_frames != m_header.frames)
        faults.push_back(
            fmt::format("its header tells {} frames, but {} are there", m_header.frames, m_frames));
    if (m_times > 0 && m_times < m_frames)
        faults.push_back(fmt::format("the times of {} frames are missing", m_frames - m_times));
    if (const int64_t rest = m_size - Place(m_frames); m_times == 0 && rest > 0)
        faults.push_back(fmt::format("{} bytes behind the last whole frame are no times", rest));
    std::error_code unknown;
    if (std::filesystem::exists(SerTimesBeside(m_file.Path()), unknown))
        faults.push_back("it was never closed: its times lie beside it, or it is still recorded");
    return faults;
}

std::optional<SerTiming> TimingOf(const SerFile &file)
{
    if (file.Times() < 2)
        return std::nullopt;
    const auto seconds = [](SerTicks ticks) { return static_cast<double>(ticks) / kSecond; };
    SerTiming timing;
    timing.first = file.TimeOf(0);
    timing.last = file.TimeOf(file.Times() - 1);
    timing.meanS = seconds(timing.last - timing.first) / static_cast<double>(file.Times() - 1);
    TimeReader times(file.Disk(), file.Place(file.Frames()), file.Times());
    SerTicks before = timing.first;
    for (int64_t frame = 0; const auto time = times.Next(); ++frame) {
        const double gapS = seconds(*time - std::exchange(before, *time));
        timing.gaps += gapS > timing.meanS * kGap ? 1 : 0;
        if (gapS > timing.longestS) {
            timing.longestS = gapS;
            timing.longestAfter = frame;
        }
    }
    return timing;
}

namespace {

/// Gives a file the times that it lacks, behind those that it has.
class TimeRepair {
  public:
    TimeRepair(SerFile &file, UtcTime lastChanged)
        : m_file(file), m_span(file.Header()), m_lastChanged(SerTicksOf(lastChanged)),
          m_done(file.Times())
    {
    }

    /// @return how many the recording had put beside the file
    int64_t Recover()
    {
        const DiskFile beside(SerTimesBeside(m_file.Disk().Path()), O_RDONLY);
        if (!beside.IsOpen() || !beside.IsRegular())
            return 0;
        const int64_t before = m_done;
        const int64_t there = std::min(beside.Size() / kTimeBytes, m_file.Frames());
        TimeReader times(beside, before * kTimeBytes, std::max<int64_t>(there - before, 0));
        for (auto time = times.Next(); time && m_span.Has(*time); time = times.Next())
            Put(*time);
        Flush();
        return m_done - before;
    }

    /// Times go on in the rhythm of those that are known. Without any, they are spread from when
    /// the recording began until the file was last changed.
    /// @return how many there were to estimate
    int64_t Estimate()
    {
        const int64_t missing = m_file.Frames() - m_done;
        const SerTicks begin = m_done > 0 ? TimeAt(0) : m_file.Header().utcTime;
        const SerTicks end = m_done > 1 ? TimeAt(m_done - 1) : m_lastChanged;
        const bool possible = m_span.Has(begin) && m_span.Has(end) && begin <= end;
        if (missing == 0 || (m_done == 0 && !possible))
            return 0;
        const int64_t intervals = (m_done > 1 ? m_done : m_file.Frames()) - 1;
        SerTicks time = m_done > 0 ? TimeAt(m_done - 1) : begin;
        SerTicks step = possible ? (end - begin) / std::max<int64_t>(intervals, 1) : 0;
        step = std::min(step, (m_span.to - time) / missing);
        for (time += m_done > 0 ? step : 0; m_done < m_file.Frames(); time += step)
            Put(time);
        Flush();
        return missing;
    }

  private:
    int64_t Offset(int64_t time) const { return m_file.Place(m_file.Frames()) + time * kTimeBytes; }

    SerTicks TimeAt(int64_t time) const
    {
        std::array<uint8_t, kSerTimeBytes> bytes{};
        m_file.Disk().Read(Offset(time), bytes);
        return LoadLow<SerTicks>(bytes.data());
    }

    void Put(SerTicks time)
    {
        m_block.resize(m_block.size() + kSerTimeBytes);
        StoreLow(time, &m_block[m_block.size() - kSerTimeBytes]);
        ++m_done;
        if (m_block.size() == kTimesAtOnce * kSerTimeBytes)
            Flush();
    }

    void Flush()
    {
        m_file.Disk().Write(Offset(m_done) - static_cast<int64_t>(m_block.size()), m_block);
        m_block.clear();
    }

    SerFile &m_file;
    const TimeSpan m_span;
    const SerTicks m_lastChanged;
    int64_t m_done;
    std::vector<uint8_t> m_block;
};

} // namespace

SerRepair RepairSer(const std::filesystem::path &path)
{
    SerFile file(path, SerFile::Access::Write);
    const UtcTime lastChanged = file.Disk().LastChanged();
    SerRepair repair{.countBefore = file.Header().frames, .frames = file.Frames()};
    // In an order in which each step leaves a file that can be repaired: the count comes first, as
    // times behind another one would be taken for frames.
    std::array<uint8_t, sizeof(int32_t)> count{};
    StoreLow(static_cast<int32_t>(file.Frames()), count.data());
    file.Disk().Write(kSerCountAt, count);
    const int64_t end = file.Place(file.Frames()) + file.Times() * kTimeBytes;
    repair.bytesCut = file.Size() - end;
    file.Disk().Cut(end);
    TimeRepair times(file, lastChanged);
    repair.timesRecovered = times.Recover();
    repair.timesEstimated = times.Estimate();
    file.Disk().ReachDisk();
    std::error_code ignored; // it is used up, or there was none
    std::filesystem::remove(SerTimesBeside(path), ignored);
    return repair;
}

namespace {

/// A copy that is written from its front to its end.
class Copy {
  public:
    explicit Copy(const std::filesystem::path &path) : m_file(path, O_WRONLY | O_CREAT | O_TRUNC)
    {
        if (!m_file.IsOpen())
            throw CannotWrite(path);
    }

    void Append(std::span<const uint8_t> bytes)
    {
        m_file.Write(m_end, bytes);
        m_end += static_cast<int64_t>(bytes.size());
    }

    /// Between two blocks is where a signal ends it.
    void Append(const DiskFile &from, int64_t begin, int64_t end)
    {
        for (; begin < end; begin += static_cast<int64_t>(m_block.size())) {
            m_block.resize(static_cast<size_t>(std::min(end - begin, kCopyBytes)));
            from.Read(begin, m_block);
            Append(m_block);
            StopSignals::SleepFor(0ms);
        }
    }

  private:
    DiskFile m_file;
    int64_t m_end = 0;
    std::vector<uint8_t> m_block;
};

/// As the header of a part.
SerHeader HeaderOfPart(const SerFile &whole, int64_t first, int64_t last)
{
    SerHeader header = whole.Header();
    header.frames = static_cast<int32_t>(last - first + 1);
    if (whole.Times() <= last)
        return header;
    const bool hasZone = std::abs(header.localTime / 2 - header.utcTime / 2) < kDay;
    const SerTicks wallClockAhead = hasZone ? header.localTime - header.utcTime : 0;
    header.utcTime = whole.TimeOf(first);
    header.localTime = header.utcTime + wallClockAhead;
    return header;
}

} // namespace

void CopyFrames(const SerFile &from, int64_t first, int64_t last, const std::filesystem::path &to)
{
    TemporaryFile temporary(to);
    {
        Copy copy(temporary.Path());
        copy.Append(Encode(HeaderOfPart(from, first, last)));
        copy.Append(from.Disk(), from.Place(first), from.Place(last + 1));
        const int64_t times = from.Place(from.Frames());
        if (from.Times() > last)
            copy.Append(from.Disk(), times + first * kTimeBytes, times + (last + 1) * kTimeBytes);
    }
    temporary.Commit();
}

} // namespace vsctool
