#include "serve/alpaca/form.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vsctool::serve {
namespace {

constexpr size_t kMostParameters = 100;

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// "a+b%20c" without what stands for other characters.
std::string Decoded(std::string_view text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
        if (text[i] == '%' && high >= 0 && low >= 0) {
            plain += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            plain += text[i] == '+' ? ' ' : text[i];
        }
    }
    return plain;
}

} // namespace

Parameters ParseForm(std::string_view text)
{
    Parameters parameters;
    while (!text.empty() && parameters.size() < kMostParameters) {
        const std::string_view pair = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(text.size(), pair.size() + 1));
        const std::string_view name = pair.substr(0, pair.find('='));
        if (!name.empty())
            parameters.emplace_back(Decoded(name),
                                    Decoded(pair.substr(std::min(pair.size(), name.size() + 1))));
    }
    return parameters;
}

std::optional<std::string> AlpacaParameters::Find(const char *name) const
{
    for (const auto &[given, value] : m_parameters)
        if (strcasecmp(given.c_str(), name) == 0)
            return value;
    return std::nullopt;
}

std::string AlpacaParameters::Text(const char *name) const
{
    const auto text = Find(name);
    if (!text)
        throw Refusal(400, fmt::format("the parameter {} is missing", name));
    return *text;
}

namespace {

template <class Number> Number ParseNumber(const char *name, const std::string &text)
{
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || text.empty())
        throw Refusal(400, fmt::format("{}={} is no number", name, text));
    return number;
}

} // namespace

int AlpacaParameters::Whole(const char *name) const
{
    return ParseNumber<int>(name, Text(name));
}

double AlpacaParameters::Number(const char *name) const
{
    const double number = ParseNumber<double>(name, Text(name));
    if (!std::isfinite(number))
        throw Refusal(400, fmt::format("{} is no number", name));
    return number;
}

bool AlpacaParameters::Flag(const char *name) const
{
    const std::string text = Text(name);
    for (const auto &[word, value] : {std::pair{"true", true}, {"false", false}})
        if (strcasecmp(text.c_str(), word) == 0)
            return value;
    throw Refusal(400, fmt::format("{}={} is neither True nor False", name, text));
}

uint32_t AlpacaParameters::Id(const char *name) const
{
    const auto text = Find(name);
    return text ? ParseNumber<uint32_t>(name, *text) : 0;
}

} // namespace vsctool::serve
