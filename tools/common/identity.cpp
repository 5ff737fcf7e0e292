#include "identity.h"

#include "failure.h"

#include <fmt/format.h>

#include <charconv>
#include <iterator>

namespace vsctool {

std::string InHex(const _VSC_ID &id)
{
    std::string text;
    for (const unsigned char byte : id.id)
        text += fmt::format("{:02x}", byte);
    return text;
}

_VSC_ID ParseId(const std::string &text)
{
    _VSC_ID id{};
    bool complete = text.size() == 2 * std::size(id.id);
    for (size_t i = 0; complete && i < std::size(id.id); ++i) {
        const char *digits = text.data() + 2 * i;
        const auto [end, error] = std::from_chars(digits, digits + 2, id.id[i], 16);
        complete = error == std::errc() && end == digits + 2;
    }
    if (!complete)
        throw Failure(Exit::kUsage,
                      fmt::format("'{}' is no identifier: write 16 hexadecimal digits", text));
    return id;
}

std::optional<_VSC_ID> IdOfCamera()
{
    _VSC_ID id{};
    if (!GetID(&id))
        return std::nullopt;
    return id;
}

} // namespace vsctool
