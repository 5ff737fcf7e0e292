#pragma once

#include <optional>
#include <string>

namespace vsctool {

/// The lines of a file or of standard input. A pipe may wait for its writer: signals end that.
class InputLines {
  public:
    /// Throws Failure when the file cannot be opened.
    /// @param file  name; empty: standard input
    explicit InputLines(const std::string &file);
    ~InputLines();
    InputLines(const InputLines &) = delete;
    InputLines &operator=(const InputLines &) = delete;

    bool FromTerminal() const;

    /// The next line; nothing at the end. Throws Failure, also with the exit code of a signal.
    std::optional<std::string> Next();

  private:
    std::string m_name;
    int m_descriptor;
    bool m_atEnd = false;
    std::string m_read; // but not yet handed out
};

} // namespace vsctool
