// Runs every target over its corpus, which takes no libFuzzer.

#include "fuzz.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#define TARGET(name) extern "C" int Fuzz_##name(const uint8_t *bytes, size_t size);
TARGETS
#undef TARGET

namespace {

constexpr struct {
    const char *name;
    int (*run)(const uint8_t *bytes, size_t size);
} kTargets[] = {
#define TARGET(name) {#name, Fuzz_##name},
    TARGETS
#undef TARGET
};

} // namespace

/// replay CORPUS: names each input before it is run.
int main(int argc, char **argv)
{
    Must(argc == 2 && std::freopen("/dev/null", "w", stdout)); // the library's messages
    for (const auto &target : kTargets) {
        const auto folder = std::filesystem::path(argv[1]) / target.name;
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator(file), {}};
            const auto *const input = reinterpret_cast<const uint8_t *>(bytes.data());
            (void)target.run(input, bytes.size());
        }
    }
    return 0;
}
