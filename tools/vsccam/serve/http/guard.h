#pragma once

#include "serve/http/message.h"

#include <optional>
#include <string>
#include <vector>

namespace vsctool::serve {

/// Who may speak with the server.
class Guard {
  public:
    /// @param hostNames  by which this machine is known, beside localhost and addresses
    /// @param token  that clients have to bring; empty: none
    Guard(std::vector<std::string> hostNames, const std::string &token);

    /// The refusal, if it is refused.
    std::optional<Response> Check(const Request &request) const;

  private:
    bool KnowsHost(std::string_view host) const;
    bool HasToken(const std::string &authorization) const;

    std::vector<std::string> m_hostNames;
    std::vector<std::string> m_authorizations; // one of them is wanted; empty: none
};

/// The token that a file holds in its first line. Throws Failure for files without one, and for
/// those that others may read.
std::string ReadToken(const std::string &file);

/// The names of this machine.
std::vector<std::string> HostNames();

} // namespace vsctool::serve
