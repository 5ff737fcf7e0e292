#include "video/drop_account.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <string_view>

namespace vsctool {
namespace {

constexpr std::string_view kAccount = "dropped "; // "dropped short:0 half set:2, empty reads:0"
constexpr std::string_view kNotTaken = "not taken";

DropAccount Parse(std::string_view text)
{
    DropAccount account;
    text = text.substr(0, text.find(',')); // behind it stands what is no frame
    for (size_t colon = 0; (colon = text.find(':')) != std::string_view::npos;) {
        const std::string name(text.substr(0, colon));
        int64_t count = 0;
        const char *end = text.data() + text.size();
        text.remove_prefix(static_cast<size_t>(
            std::from_chars(text.data() + colon + 1, end, count).ptr - text.data()));
        text.remove_prefix(std::min(text.size(), text.find_first_not_of(' ')));
        if (name != kNotTaken)
            account.emplace_back(name, count);
    }
    return account;
}

} // namespace

DropAccount DropAccountIn(std::span<const LibraryLine> lines)
{
    const auto isAccount = [](const LibraryLine &line) { return line.text.starts_with(kAccount); };
    const auto last = std::find_if(lines.rbegin(), lines.rend(), isAccount);
    return last == lines.rend() ? DropAccount() : Parse(After(kAccount, last->text));
}

int64_t SumOf(const DropAccount &account)
{
    const auto add = [](int64_t sum, const auto &reason) { return sum + reason.second; };
    return std::accumulate(account.begin(), account.end(), int64_t{0}, add);
}

} // namespace vsctool
