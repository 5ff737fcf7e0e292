#include "name_pattern.h"

#include "failure.h"

#include <fmt/args.h>
#include <fmt/chrono.h>

#include <algorithm>
#include <climits>

namespace vsctool {
namespace {

constexpr size_t kLongestPath = PATH_MAX - 1;

/// Texts become part of a file name, never of a path.
std::string Safe(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '/' || c == ' '; }, '_');
    return text;
}

std::string ExpandPattern(const std::string &pattern, const NameFields &fields)
{
    fmt::dynamic_format_arg_store<fmt::format_context> values;
    const std::tm start = WholeSeconds(fields.start);
    values.push_back(fmt::arg("seq", fields.sequence));
    values.push_back(fmt::arg("object", Safe(fields.object)));
    values.push_back(fmt::arg("type", fields.type));
    values.push_back(fmt::arg("model", Safe(fields.model)));
    values.push_back(fmt::arg("format", fields.format));
    values.push_back(fmt::arg("exposure", FormatTime(fields.exposure)));
    values.push_back(fmt::arg("gain", fields.gain));
    values.push_back(fmt::arg("offset", fields.offset));
    values.push_back(fmt::arg("bin", fields.bin));
    values.push_back(fmt::arg("date", fmt::format("{:%Y-%m-%d}", start)));
    values.push_back(fmt::arg("time", fmt::format("{:%H%M%S}", start)));
    // A field may be as wide as the pattern says, which is no reason to fill the memory.
    std::string name(kLongestPath, '\0');
    size_t length = 0;
    try {
        length = fmt::vformat_to_n(name.begin(), name.size(), pattern, values).size;
    } catch (const fmt::format_error &error) {
        throw Failure(Exit::kUsage, fmt::format("file name '{}': {}; it may contain {}", pattern,
                                                error.what(), NamePattern::Help()));
    }
    if (length > name.size())
        throw Failure(Exit::kUsage, fmt::format("file name '{}' becomes too long", pattern));
    name.resize(length);
    return name;
}

bool IsNumberedPattern(const std::string &pattern)
{
    NameFields second;
    second.sequence = 2;
    return ExpandPattern(pattern, {}) != ExpandPattern(pattern, second);
}

} // namespace

bool IsTiffName(const std::filesystem::path &path)
{
    return path.extension() == ".tif" || path.extension() == ".tiff";
}

NamePattern::NamePattern(const std::string &pattern, bool isSeries)
    : m_pattern(pattern), m_numbered(IsNumberedPattern(pattern))
{
    const std::string extension = std::filesystem::path(pattern).extension();
    if (extension != ".fit" && extension != ".fits" && !IsTiffName(pattern))
        throw Failure(Exit::kUsage, fmt::format("file name '{}': pictures are FITS or TIFF files; "
                                                "end it in .fit or .tif",
                                                pattern));
    if (isSeries && !m_numbered) {
        m_pattern.insert(m_pattern.size() - extension.size(), "_{seq:05}");
        m_numbered = true;
    }
}

std::filesystem::path NamePattern::Expand(const NameFields &fields) const
{
    return ExpandPattern(m_pattern, fields);
}

const char *NamePattern::Help()
{
    return "{seq:05} {object} {type} {model} {format} {exposure} {gain} {offset} {bin} {date} "
           "{time}";
}

} // namespace vsctool
