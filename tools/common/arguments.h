#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace vsctool {

/// Words in the form that starting a program takes; they point into `words`.
inline std::vector<char *> Pointers(std::vector<std::string> &words)
{
    std::vector<char *> pointers;
    std::transform(words.begin(), words.end(), std::back_inserter(pointers),
                   [](std::string &word) { return word.data(); });
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace vsctool
