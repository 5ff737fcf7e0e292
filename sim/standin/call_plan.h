#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vscsim {

/// Numbers the program's libusb calls and knows which of them are to fail.
class CallPlan {
  public:
    struct Begun {
        int failure = 0;         // libusb code that the call is to return, or 0
        std::vector<int> unplug; // devices that leave the bus now
    };

    /// `function` is a literal: it is kept.
    Begun Begin(std::string_view function);
    /// A transfer is handed back: that is numbered like the calls of one function, but is none.
    /// @return the libusb code with which it is to fail, or 0
    int Complete() { return FailureOf(kCompletion, std::nullopt); }

    /// Calls so far, of one function or (empty) of all.
    uint64_t Count(std::string_view function) const;

    void Fail(uint64_t from, uint64_t count, int code, std::string_view function);
    void Mend() { m_failures.clear(); }
    void Unplug(int device, uint64_t call);

  private:
    struct Failure {
        uint64_t from;
        uint64_t count;
        int code;
        std::string function; // empty: any
    };
    struct Departure {
        int device;
        uint64_t call;
    };

    static constexpr std::string_view kCompletion = "completion";

    int FailureOf(std::string_view function, std::optional<uint64_t> call);

    uint64_t m_calls = 0;
    std::map<std::string_view, uint64_t> m_callsOf;
    std::vector<Failure> m_failures;
    std::vector<Departure> m_departures;
};

} // namespace vscsim
