#include "serve/jpeg.h"

#include "failure.h"

#include <turbojpeg.h>

#include <memory>

namespace vsctool::serve {
namespace {

constexpr int kQuality = 80;

struct DestroyCompressor {
    void operator()(void *compressor) const { tjDestroy(compressor); }
};
struct FreeJpeg {
    void operator()(unsigned char *jpeg) const { tjFree(jpeg); }
};

} // namespace

std::string ToJpeg(std::span<const uint8_t> bytes, int width, int height)
{
    const std::unique_ptr<void, DestroyCompressor> compressor(tjInitCompress());
    const bool isGrey = bytes.size() == static_cast<size_t>(width) * static_cast<size_t>(height);
    unsigned char *jpeg = nullptr;
    unsigned long size = 0;
    const int failed =
        tjCompress2(compressor.get(), bytes.data(), width, 0, height, isGrey ? TJPF_GRAY : TJPF_RGB,
                    &jpeg, &size, isGrey ? TJSAMP_GRAY : TJSAMP_420, kQuality, TJFLAG_FASTDCT);
    const std::unique_ptr<unsigned char, FreeJpeg> owned(jpeg);
    if (failed)
        throw Failure(Exit::kFailure, tjGetErrorStr2(compressor.get()));
    return {reinterpret_cast<const char *>(jpeg), size};
}

} // namespace vsctool::serve
