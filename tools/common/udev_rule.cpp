#include "udev_rule.h"

#include "system_files.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <vector>

namespace vsctool {
namespace {

constexpr const char *kRuleName = "60-vsccam.rules";
constexpr const char *kGroup = "plugdev";

/// A rule counts for a device only when the system looks at that device anew.
const std::string kApplyRule = fmt::format(
    "sudo udevadm trigger --subsystem-match=usb --attr-match=idVendor={:04x}", VSCCAM_VENDOR_ID);

/// udev takes the first of these.
std::string RuleFile()
{
    for (const char *folder : {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"}) {
        const std::string file = fmt::format("{}/udev/rules.d/{}", folder, kRuleName);
        if (access(file.c_str(), F_OK) == 0)
            return file;
    }
    return "";
}

/// The rule that came with this program: it was installed beside it, or built with it.
std::string RuleSource()
{
    const std::filesystem::path folder =
        std::filesystem::path(LinkTarget("/proc/self/exe")).parent_path().parent_path();
    for (const char *place : {"lib/udev/rules.d", "packaging"})
        if (const auto file = folder / place / kRuleName; access(file.c_str(), F_OK) == 0)
            return file;
    return "";
}

} // namespace

const std::string kJoinGroup = "sudo usermod -aG plugdev \"$USER\"";
const std::string kNewLogin = "newgrp plugdev";

UdevRule FindUdevRule()
{
    return {RuleFile(), RuleSource()};
}

Membership MembershipOfUser()
{
    // One thread only looks at users and groups. NOLINTBEGIN(concurrency-mt-unsafe)
    const group *const wanted = getgrnam(kGroup);
    if (geteuid() == 0 || !wanted)
        return geteuid() == 0 ? Membership::kMember : Membership::kNone;
    std::vector<gid_t> own(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    own.resize(
        static_cast<size_t>(std::max(getgroups(static_cast<int>(own.size()), own.data()), 0)));
    if (getegid() == wanted->gr_gid || std::ranges::count(own, wanted->gr_gid) > 0)
        return Membership::kMember;
    const passwd *const user = getpwuid(geteuid());
    for (char **name = wanted->gr_mem; user && *name; ++name)
        if (std::string(*name) == user->pw_name)
            return Membership::kAfterLogin;
    // NOLINTEND(concurrency-mt-unsafe)
    return Membership::kNone;
}

std::string InstallRule(const UdevRule &rule)
{
    if (rule.source.empty())
        return "sudo apt install vsccam-common";
    return fmt::format("sudo cp '{}' /etc/udev/rules.d/ && sudo udevadm control --reload && {}",
                       rule.source, kApplyRule);
}

std::string GainPermission(const UdevRule &rule, Membership membership)
{
    if (rule.file.empty())
        return InstallRule(rule);
    if (membership == Membership::kMember)
        return kApplyRule;
    return membership == Membership::kNone ? kJoinGroup : kNewLogin;
}

} // namespace vsctool
