// improvement FACTOR SCENE BEFORE AFTER POSITIONS: whether the pixels at these positions are by
// that factor nearer to the scene after a correction than before. All pictures are FITS files.
#include <fitsio.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace {

struct Position {
    long x = 0;
    long y = 0;
};

std::vector<Position> ReadPositions(const char *file)
{
    std::ifstream in(file);
    std::vector<Position> positions;
    for (Position p; in >> p.x >> p.y;)
        positions.push_back(p);
    return positions;
}

std::vector<double> ReadPixels(const char *file, const std::vector<Position> &positions)
{
    fitsfile *fits = nullptr;
    int status = 0;
    std::vector<double> pixels;
    fits_open_image(&fits, file, READONLY, &status);
    for (const Position &position : positions) {
        long first[] = {position.x + 1, position.y + 1};
        double pixel = 0;
        fits_read_pix(fits, TDOUBLE, first, 1, nullptr, &pixel, nullptr, &status);
        pixels.push_back(pixel);
    }
    fits_close_file(fits, &status);
    if (status != 0) {
        fits_report_error(stderr, status);
        std::exit(2);
    }
    return pixels;
}

double MeanError(const std::vector<double> &scene, const std::vector<double> &picture)
{
    double sum = 0;
    for (size_t i = 0; i < scene.size(); ++i)
        sum += std::abs(picture[i] - scene[i]);
    return sum / static_cast<double>(scene.size());
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 6)
        return 2;
    const std::vector<Position> positions = ReadPositions(argv[5]);
    const std::vector<double> scene = ReadPixels(argv[2], positions);
    const double before = MeanError(scene, ReadPixels(argv[3], positions));
    const double after = MeanError(scene, ReadPixels(argv[4], positions));
    std::printf("mean error at %zu pixels: %.1f before, %.1f after\n", positions.size(), before,
                after);
    return !positions.empty() && before >= std::atof(argv[1]) * after ? 0 : 1;
}
