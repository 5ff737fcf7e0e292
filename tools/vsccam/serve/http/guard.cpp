#include "serve/http/guard.h"

#include "failure.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <fstream>

namespace vsctool::serve {
namespace {

constexpr size_t kShortestToken = 8;
constexpr size_t kLongestToken = 200;
constexpr std::string_view kUser = "vsccam"; // where a browser asks for a name as well

bool IsSame(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// "name:8080" without the port, and without the brackets of "[::1]:8080".
std::string_view WithoutPort(std::string_view host)
{
    if (host.starts_with('['))
        return host.substr(1, host.find(']') - 1);
    return host.substr(0, host.find(':'));
}

bool IsAddress(std::string_view host)
{
    std::array<uint8_t, sizeof(in6_addr)> bytes{};
    const std::string text(host);
    return inet_pton(AF_INET, text.c_str(), bytes.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1;
}

std::string Base64(std::string_view text)
{
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string digits;
    for (size_t i = 0; i < text.size(); i += 3) {
        const std::string_view group = text.substr(i, 3);
        uint32_t bits = 0;
        for (size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < group.size() ? static_cast<uint8_t>(group[k]) : 0U);
        for (size_t k = 0; k < 4; ++k)
            digits += k <= group.size() ? kDigits[bits >> (18 - 6 * k) & 63] : '=';
    }
    return digits;
}

/// How long it takes tells nothing of where they differ.
bool IsSameSecret(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    unsigned difference = 0;
    for (size_t i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned>(a[i] ^ b[i]);
    return difference == 0;
}

} // namespace

Guard::Guard(std::vector<std::string> hostNames, const std::string &token)
    : m_hostNames(std::move(hostNames))
{
    if (!token.empty())
        m_authorizations = {"Bearer " + token,
                            "Basic " + Base64(fmt::format("{}:{}", kUser, token))};
}

/// A name that is not ours is one that somebody else has made lead here.
bool Guard::KnowsHost(std::string_view host) const
{
    const std::string_view name = WithoutPort(host);
    return IsAddress(name) || std::ranges::any_of(m_hostNames, [name](const std::string &own) {
               return IsSame(name, own);
           });
}

bool Guard::HasToken(const std::string &authorization) const
{
    return m_authorizations.empty() ||
           std::ranges::any_of(m_authorizations, [&](const std::string &wanted) {
               return IsSameSecret(authorization, wanted);
           });
}

std::optional<Response> Guard::Check(const Request &request) const
{
    if (!KnowsHost(request.host))
        return ErrorResponse(421, fmt::format("'{}' is not this machine", request.host));
    if (!request.origin.empty() && request.origin != "http://" + request.host)
        return ErrorResponse(403, "a page of another site asks");
    if (HasToken(request.authorization))
        return std::nullopt;
    Response refused = ErrorResponse(401, "the token is missing, or another one");
    refused.headers.emplace_back("WWW-Authenticate", R"(Basic realm="vsccam", charset="UTF-8")");
    return refused;
}

std::string ReadToken(const std::string &file)
{
    struct stat facts {};
    std::ifstream stream(file);
    std::string token;
    if (stat(file.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode) || !std::getline(stream, token))
        throw Failure(Exit::kFile, fmt::format("{} holds no token that can be read", file));
    if ((facts.st_mode & S_IROTH) != 0)
        throw Failure(Exit::kFile,
                      fmt::format("others may read {}; 'chmod o= {}' mends it", file, file));
    const bool isPlain = std::ranges::all_of(token, [](char c) { return c > ' ' && c <= '~'; });
    if (!isPlain || token.size() < kShortestToken || token.size() > kLongestToken)
        throw Failure(Exit::kFile, fmt::format("the first line of {} is no token: {} to {} plain "
                                               "characters without blanks",
                                               file, kShortestToken, kLongestToken));
    return token;
}

std::vector<std::string> HostNames()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    gethostname(name.data(), name.size() - 1);
    const std::string own = name.data();
    std::vector<std::string> names = {"localhost"};
    if (!own.empty())
        names.insert(names.end(), {own, own + ".local"});
    return names;
}

} // namespace vsctool::serve
