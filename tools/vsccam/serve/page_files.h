#pragma once

#include <span>
#include <string_view>

namespace vsctool::serve {

/// A file of the folder page/, which is part of the program.
struct PageFile {
    std::string_view name;
    std::string_view bytes;
};

std::span<const PageFile> PageFiles();

/// By the end of a file's name.
const char *ContentTypeOf(std::string_view name);

} // namespace vsctool::serve
