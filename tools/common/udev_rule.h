#pragma once

#include <string>

namespace vsctool {

/// The rule that lets users work the cameras.
struct UdevRule {
    std::string file;   // that is in force; empty: none
    std::string source; // that it can be copied from; empty: none came along
};
UdevRule FindUdevRule();

/// How a user belongs to the group of the rule.
enum class Membership { kMember, kAfterLogin, kNone };
Membership MembershipOfUser();

// Commands that mend what is wrong with these.
extern const std::string kJoinGroup;
extern const std::string kNewLogin;
std::string InstallRule(const UdevRule &rule);
/// When the user may not use a camera that is plugged in.
std::string GainPermission(const UdevRule &rule, Membership membership);

} // namespace vsctool
