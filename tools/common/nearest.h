#pragma once

#include <string>
#include <vector>

namespace vsctool {

/// The one of the known words that is a slip of the finger away; empty: none.
std::string Nearest(const std::string &word, const std::vector<std::string> &known);

/// What to answer to a word that is none of those there are: "did you mean gain?" when one is
/// near, else "there are ..." with all of them.
std::string Suggest(const std::string &word, const std::vector<std::string> &known);

} // namespace vsctool
