#include "ser/disk_file.h"

#include "failure.h"
#include "temporary_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace vsctool {
namespace {

static_assert(sizeof(off_t) == sizeof(int64_t));

constexpr mode_t kMode = 0666; // less what the user masks

/// All zeros for a file that cannot be looked at.
struct stat FactsOf(int file)
{
    struct stat facts {};
    (void)fstat(file, &facts);
    return facts;
}

} // namespace

void RequireFree(const std::filesystem::path &path)
{
    std::error_code unreachable; // shows when the file is created
    if (std::filesystem::exists(path, unreachable))
        throw Failure(Exit::kFile, fmt::format("{} exists; choose another name, or add --overwrite",
                                               path.string()));
}

DiskFile::DiskFile(std::filesystem::path path, int flags)
    : m_path(std::move(path)), m_file(open(m_path.c_str(), flags | O_CLOEXEC, kMode))
{
}

DiskFile::~DiskFile()
{
    if (IsOpen())
        close(m_file);
}

bool DiskFile::IsRegular() const
{
    return S_ISREG(FactsOf(m_file).st_mode);
}

int64_t DiskFile::Size() const
{
    return FactsOf(m_file).st_size;
}

UtcTime DiskFile::LastChanged() const
{
    const timespec time = FactsOf(m_file).st_mtim;
    return UtcTime(std::chrono::seconds(time.tv_sec) + Microseconds(time.tv_nsec / 1000));
}

bool DiskFile::IsRemoved() const
{
    return FactsOf(m_file).st_nlink == 0;
}

void DiskFile::Read(int64_t offset, std::span<uint8_t> bytes) const
{
    while (!bytes.empty()) {
        const ssize_t got = pread(m_file, bytes.data(), bytes.size(), offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw Failure(Exit::kFile, fmt::format("cannot read {}: {}", m_path.string(),
                                                   got < 0 ? std::generic_category().message(errno)
                                                           : "it has become shorter"));
        bytes = bytes.subspan(static_cast<size_t>(got));
        offset += got;
    }
}

bool DiskFile::TryWrite(int64_t offset, std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = pwrite(m_file, bytes.data(), bytes.size(), offset);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes = bytes.subspan(static_cast<size_t>(written));
        offset += written;
    }
    return true;
}

void DiskFile::Write(int64_t offset, std::span<const uint8_t> bytes)
{
    if (!TryWrite(offset, bytes))
        throw CannotWrite(m_path);
}

void DiskFile::Cut(int64_t size)
{
    if (ftruncate(m_file, size) != 0)
        throw CannotWrite(m_path);
}

void DiskFile::ReachDisk()
{
    if (fsync(m_file) != 0)
        throw CannotWrite(m_path);
}

} // namespace vsctool
