#include "camera/fault_plan.h"

#include "fuzz.h"

#include <algorithm>
#include <string>
#include <string_view>

using namespace vscsim;

// A text is a plan whose rules are all usable, or it is refused with a message. Paths are left out:
// they would lead to files of this machine.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(bytes), size);
    const size_t start = text.find_first_not_of(" \t\r\n");
    const bool json = start != text.npos && (text[start] == '[' || text[start] == '{');
    if (!json && (text.find('/') != text.npos || text.ends_with(".json")))
        return 0;
    std::string error;
    const auto plan = ParseFaultPlan(text, &error);
    Must(plan.has_value() == error.empty());
    if (plan)
        Must(std::all_of(plan->begin(), plan->end(), [](const FaultRule &rule) {
            return !NameOf(rule.fault).empty() && rule.count > 0 && rule.probability >= 0 &&
                   rule.probability <= 1;
        }));
    return 0;
}
