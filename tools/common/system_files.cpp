#include "system_files.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <memory>

namespace vsctool {
namespace {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

struct CloseFolder {
    void operator()(DIR *folder) const { closedir(folder); }
};

} // namespace

std::string ReadLine(const std::string &path)
{
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "re"));
    std::array<char, 256> line{};
    if (!file || !std::fgets(line.data(), line.size(), file.get()))
        return "";
    const std::string text = line.data();
    return text.substr(0, text.find('\n'));
}

std::optional<int64_t> ReadNumber(const std::string &path, int base)
{
    const std::string text = ReadLine(path);
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

std::vector<std::string> NamesIn(const std::string &folder)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> open(opendir(folder.c_str()));
    // The folder belongs to this thread alone.
    while (const dirent *entry = open ? readdir(open.get()) : nullptr) // NOLINT(concurrency-*)
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

std::string LinkTarget(const std::string &path)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    return {target.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

} // namespace vsctool
