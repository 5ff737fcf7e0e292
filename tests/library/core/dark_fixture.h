#pragma once

#include "core/dark_file.h"
#include "library/host_fixture.h"
#include "library/wire.h"
#include "models/sony/s470.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace vsccam {

/// A test with dark frames of one model in a folder of its own.
class DarkTest : public HostTest {
  protected:
    static constexpr Size kSensor{1936, 1096};
    static constexpr size_t kPixelOffset = 1080; // of the files, whatever their headers say

    ~DarkTest() override { std::filesystem::remove_all(m_folder); }

    std::string InFolder(const char *name) const { return m_folder / name; }

    /// Lets the header tell where the pixels really are, so that they come back in their places.
    static void TellTheOffset(const std::string &path)
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(12).write("\x38\x04", 2);
    }

    /// Loads a dark frame of the whole sensor through a file.
    int LoadDark(CCameraBase &camera, const Bytes &image) const
    {
        const std::string path = InFolder("dark.bmp");
        EXPECT_TRUE(CreateBMP(path.c_str(), kSensor, image));
        TellTheOffset(path);
        return camera.LoadBMPFromFile(path.c_str());
    }

  private:
    static std::filesystem::path NewFolder()
    {
        std::string name = std::filesystem::temp_directory_path() / "vsccam-XXXXXX";
        return mkdtemp(name.data());
    }

    const std::filesystem::path m_folder = NewFolder();
};

} // namespace vsccam
