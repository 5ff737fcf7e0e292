#include "serve/folder.h"

#include "failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>

namespace vsctool::serve {
namespace {

constexpr size_t kLongestName = 200;

bool IsPlain(const std::string &name)
{
    const bool readable = std::ranges::all_of(
        name, [](unsigned char c) { return c >= ' ' && c != 0x7F && c != '/' && c != '\\'; });
    return readable && !name.empty() && name.size() <= kLongestName && name.front() != '.';
}

} // namespace

Folder::Folder(const std::filesystem::path &path)
{
    std::error_code unreachable;
    m_path = std::filesystem::canonical(path, unreachable);
    if (unreachable || !std::filesystem::is_directory(m_path, unreachable))
        throw Failure(Exit::kFile, fmt::format("there is no folder {}", path.string()));
}

std::filesystem::path Folder::FileOf(const std::string &name) const
{
    if (!IsPlain(name))
        throw Failure(
            Exit::kUsage,
            fmt::format("'{}' is no plain name of a file: it has no slash, does not begin "
                        "with a dot, and has at most {} bytes",
                        name, kLongestName));
    return m_path / name;
}

std::optional<uint64_t> Folder::BytesFree() const
{
    std::error_code unknown;
    const auto space = std::filesystem::space(m_path, unknown);
    return unknown ? std::nullopt : std::optional<uint64_t>(space.available);
}

} // namespace vsctool::serve
