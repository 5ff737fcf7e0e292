#include "capture/drop_counts.h"

#include "base/debug_print.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace vsccam {

namespace {

constexpr const char *kNames[] = {"short",     "marks",     "counter", "half set",
                                  "ring full", "not taken", "lost"};
static_assert(std::size(kNames) == kDropReasons);

} // namespace

int DropCounts::Sum() const
{
    const int64_t sum = std::accumulate(frames.begin(), frames.end(), int64_t{0});
    return static_cast<int>(std::min<int64_t>(sum, INT32_MAX));
}

void DropCounts::Print() const
{
    char reasons[256] = "";
    size_t length = 0;
    for (size_t i = 0; i < frames.size() && length < sizeof reasons; ++i)
        length +=
            static_cast<size_t>(std::snprintf(reasons + length, sizeof reasons - length, " %s:%lld",
                                              kNames[i], static_cast<long long>(frames[i])));
    OutputDbgPrint("dropped%s, empty reads:%lld\n", reasons, static_cast<long long>(emptyReads));
}

} // namespace vsccam
