#pragma once

#include "units.h"

#include <chrono>
#include <filesystem>
#include <string>

namespace vsctool {

/// Whether a name ends like that of a TIFF file.
bool IsTiffName(const std::filesystem::path &path);

/// What a file name may tell about its picture.
struct NameFields {
    int sequence = 1;
    std::string object;
    std::string type;
    std::string model;
    std::string format;
    Microseconds exposure{};
    int gain = 0;
    int offset = 0;
    int bin = 1;
    UtcTime start;
};

/// Name of the next picture of a series, such as "m42_{seq:05}.fit".
class NamePattern {
  public:
    /// A series whose pattern has no {seq} gets one before the extension. Throws Failure when the
    /// pattern is not understood.
    NamePattern(const std::string &pattern, bool isSeries);

    std::filesystem::path Expand(const NameFields &fields) const;

    /// Whether the sequence number makes names differ.
    bool IsNumbered() const { return m_numbered; }

    static const char *Help();

  private:
    std::string m_pattern;
    bool m_numbered = false;
};

} // namespace vsctool
