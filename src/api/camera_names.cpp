#include "api/camera_names.h"

#include "base/debug_print.h"
#include "catalogue/product_list.h"

#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <new>
#include <optional>
#include <string_view>

namespace vsccam {

namespace {

constexpr const char *kVariable = "VSCCAM_CAMERA";
constexpr std::string_view kBlanks = " \t";

bool EqualIgnoringCase(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
}

/// Cuts off and returns the text before the first `separator`, or all of it when there is none.
std::string_view TakeUpTo(std::string_view &text, char separator)
{
    const size_t end = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return taken;
}

std::string_view Trimmed(std::string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool TakePrefix(std::string_view &text, std::string_view prefix)
{
    if (!EqualIgnoringCase(text.substr(0, prefix.size()), prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

/// The number of a bus or port, 1 to 255 in decimal. Nothing for anything else.
std::optional<uint8_t> Number(std::string_view digits)
{
    uint8_t number = 0;
    const char *const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc() || rest != end || number == 0)
        return std::nullopt;
    return number;
}

/// "1-2.3": bus 1, port 2 of its root hub, port 3 of the hub there.
std::optional<PortPath> Path(std::string_view text)
{
    PortPath path;
    const size_t dash = text.find('-');
    const auto bus = Number(text.substr(0, dash));
    if (!bus || dash == std::string_view::npos)
        return std::nullopt;
    path.bus = *bus;
    text.remove_prefix(dash + 1);
    for (bool more = true; more;) {
        more = text.find('.') != std::string_view::npos;
        const auto port = Number(TakeUpTo(text, '.'));
        if (!port || path.depth == std::ssize(path.ports))
            return std::nullopt;
        path.ports[path.depth++] = *port;
    }
    return path;
}

/// By its whole name, or without the maker's word before it.
const Product *FindProductNamed(std::string_view name)
{
    for (const Product &product : Products()) {
        const std::string_view whole = product.name;
        if (EqualIgnoringCase(name, whole) ||
            EqualIgnoringCase(name, whole.substr(whole.find(' ') + 1)))
            return &product;
    }
    return nullptr;
}

std::optional<CameraChoice::Entry> EntryOf(std::string_view text)
{
    if (TakePrefix(text, "usb:")) {
        if (const auto path = Path(text))
            return CameraChoice::Entry{.path = *path};
    } else if (TakePrefix(text, "model:")) {
        if (const Product *product = FindProductNamed(text))
            return CameraChoice::Entry{.path = {}, .productId = product->productId};
    }
    return std::nullopt;
}

} // namespace

CameraChoice CamerasNamed(const char *text)
{
    std::string_view rest = text ? text : "";
    CameraChoice choice{.restricts = !rest.empty(), .named = {}};
    for (bool more = choice.restricts; more;) {
        more = rest.find(',') != std::string_view::npos;
        const std::string_view word = Trimmed(TakeUpTo(rest, ','));
        if (const auto entry = EntryOf(word))
            choice.named.push_back(*entry);
        else
            OutputDbgPrint("%s: \"%.*s\" names no camera\n", kVariable,
                           static_cast<int>(word.size()), word.data());
    }
    return choice;
}

CameraChoice CamerasNamedByEnvironment()
{
    try {
        return CamerasNamed(secure_getenv(kVariable));
    } catch (const std::bad_alloc &) {
        return {.restricts = true, .named = {}}; // rather no camera than any
    }
}

} // namespace vsccam
