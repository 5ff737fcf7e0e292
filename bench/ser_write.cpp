#include "failure.h"
#include "ser/writer.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

using namespace vsctool;

// ser_write FILE FRAMES: writes a recording of 1936 x 1096 pixels from memory, and tells how many
// MB/s that were, until all of it was on the disk.
int main(int argc, char **argv)
try {
    if (argc != 3)
        return EXIT_FAILURE;
    const SerHeader header{.width = 1936, .height = 1096};
    const std::vector<uint8_t> frame(static_cast<size_t>(FrameBytesOf(header)), 'v');
    const int frames = std::atoi(argv[2]);
    const auto begin = std::chrono::steady_clock::now();
    SerWriter writer(argv[1], header, true);
    for (int i = 0; i < frames; ++i)
        writer.Add(frame, UtcTime(Microseconds(i)));
    writer.Close();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%.1f\n", static_cast<double>(frame.size()) * frames / took.count() / 1e6);
    return EXIT_SUCCESS;
} catch (const Failure &failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return failure.Code();
}
