#include "simulate.h"

#include "arguments.h"
#include "failure.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace vsctool {
namespace {

constexpr const char *kMark = "VSCCAM_SIMULATED";
constexpr const char *kTestBed = "UMOCKDEV_DIR"; // every program on such a bus has it

} // namespace

bool IsSimulated()
{
    // Asked by the main thread only, which alone changes the environment.
    return std::getenv(kMark) || std::getenv(kTestBed); // NOLINT(concurrency-mt-unsafe)
}

void RunSimulated(const std::vector<std::string> &models, const std::vector<std::string> &arguments)
{
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    std::vector<std::string> words = {"vscsim", "run"};
    for (const std::string &model : models) {
        words.emplace_back("--camera");
        words.push_back(model);
    }
    words.emplace_back("--");
    words.push_back(self);
    words.insert(words.end(), arguments.begin(), arguments.end());

    const std::vector<char *> pointers = Pointers(words);

    setenv(kMark, "1", 1); // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    execv((self.parent_path() / "vscsim").c_str(), pointers.data());
    execvp("vscsim", pointers.data());
    throw Failure(Exit::kFailure,
                  "the simulator 'vscsim' was found neither beside this program nor "
                  "in PATH; install the package vscsim");
}

} // namespace vsctool
