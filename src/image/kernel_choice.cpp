#include "image/kernel_choice.h"

#include <atomic>

#ifdef __arm__
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace vsccam {

namespace {

/// Stands for any kernel, and does none of the `count` samples.
template <class... Arguments> size_t None(Arguments...)
{
    return 0;
}

constexpr Kernels kPlain = {"plain", None, None, None, None, None, None, None, None,
                            None,    None, None, None, None, None, None, None};

#if defined(__x86_64__)

bool HasAvx512()
{
    return __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
           __builtin_cpu_supports("avx512dq") != 0 && __builtin_cpu_supports("avx512cd") != 0 &&
           __builtin_cpu_supports("avx512vbmi") != 0;
}

#endif

bool Always()
{
    return true;
}

struct Candidate {
    bool (*runs)();
    const Kernels *kernels;
};

// The best first.
constexpr Candidate kCandidates[] = {
#if defined(__x86_64__)
    {HasAvx512, &kAvx512Kernels},
    {[] { return __builtin_cpu_supports("avx2") != 0; }, &kAvx2Kernels},
    {[] { return __builtin_cpu_supports("sse4.2") != 0; }, &kSse4Kernels},
#elif defined(__arm__)
    {[] { return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0; }, &kNeonKernels},
#endif
    {Always, &kPlain}};

const Kernels *Best()
{
    for (const Candidate &candidate : kCandidates)
        if (candidate.runs())
            return candidate.kernels;
    return &kPlain;
}

std::atomic<const Kernels *> &Current()
{
    static std::atomic<const Kernels *> current{Best()};
    return current;
}

} // namespace

std::vector<const Kernels *> RunnableKernels()
{
    std::vector<const Kernels *> runnable;
    for (const Candidate &candidate : kCandidates)
        if (candidate.runs())
            runnable.push_back(candidate.kernels);
    return runnable;
}

const Kernels &CurrentKernels()
{
    return *Current().load(std::memory_order_relaxed);
}

void UseKernels(const Kernels &kernels)
{
    Current().store(&kernels, std::memory_order_relaxed);
}

} // namespace vsccam
