#include "temporary_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace vsctool {
namespace {

std::filesystem::path HiddenBeside(const std::filesystem::path &path)
{
    return path.parent_path() / fmt::format(".{}.part", path.filename().string());
}

/// @return false, with the reason in errno, when what was written is not on the disk
bool ReachesDisk(const std::filesystem::path &path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const int error = fsync(file) == 0 ? 0 : errno;
    close(file);
    errno = error;
    return error == 0;
}

} // namespace

TemporaryFile::TemporaryFile(std::filesystem::path finalPath)
    : m_finalPath(std::move(finalPath)), m_path(HiddenBeside(m_finalPath))
{
    std::error_code ignored; // a folder that cannot be made shows when the file is created
    std::filesystem::create_directories(m_finalPath.parent_path(), ignored);
    std::filesystem::remove(m_path, ignored);
}

TemporaryFile::~TemporaryFile()
{
    std::error_code ignored; // after Commit there is nothing left to remove
    std::filesystem::remove(m_path, ignored);
}

void TemporaryFile::Commit()
{
    // Only now does the system tell of a disk that failed, or was pulled, after the last write.
    if (!ReachesDisk(m_path))
        throw CannotWrite(m_finalPath);
    std::error_code error;
    std::filesystem::rename(m_path, m_finalPath, error);
    if (error)
        throw Failure(Exit::kFile, fmt::format("cannot name the finished file {}: {}",
                                               m_finalPath.string(), error.message()));
}

Failure CannotWrite(const std::filesystem::path &file, const std::string &writer)
{
    std::string reason = errno != 0 ? std::generic_category().message(errno) : "";
    std::error_code error;
    const auto space = std::filesystem::space(std::filesystem::absolute(file).parent_path(), error);
    if (reason.empty() && !error && space.available == 0)
        reason = std::generic_category().message(ENOSPC);
    if (!writer.empty() && writer != reason)
        reason += reason.empty() ? writer : fmt::format(" ({})", writer);
    return {Exit::kFile, fmt::format("cannot write {}: {}", file.string(),
                                     reason.empty() ? "check folder and disk space" : reason)};
}

} // namespace vsctool
