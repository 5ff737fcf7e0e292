#include "serve/page_files.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vsctool::serve {
namespace {

constexpr std::pair<std::string_view, const char *> kTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".json", "application/json"}};

} // namespace

const char *ContentTypeOf(std::string_view name)
{
    const auto *found = std::ranges::find_if(
        kTypes, [name](const auto &type) { return name.ends_with(type.first); });
    return found == std::end(kTypes) ? "application/octet-stream" : found->second;
}

} // namespace vsctool::serve
