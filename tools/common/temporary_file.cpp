#include "temporary_file.h"

#include "failure.h"

#include <fmt/format.h>

#include <system_error>
#include <utility>

namespace vsctool {
namespace {

std::filesystem::path HiddenBeside(const std::filesystem::path &path)
{
    return path.parent_path() / fmt::format(".{}.part", path.filename().string());
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
    std::error_code error;
    std::filesystem::rename(m_path, m_finalPath, error);
    if (error)
        throw Failure(Exit::kFile, fmt::format("cannot name the finished file {}: {}",
                                               m_finalPath.string(), error.message()));
}

} // namespace vsctool
