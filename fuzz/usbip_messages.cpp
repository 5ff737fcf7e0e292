#include "vscsim/usbip_messages.h"

#include "fuzz.h"

#include <type_traits>

using namespace vscsim::usbip;

// A message lies in the bytes that it was read from.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const std::span input(bytes, size);
    const auto liesWithin = [=](const auto &message) {
        using Message = std::decay_t<decltype(message)>;
        if constexpr (std::is_same_v<Message, AttachRequest>)
            Must(message.busId.size() < message.Size() &&
                 message.busId.find('\0') == std::string_view::npos);
        if constexpr (std::is_same_v<Message, Submit>)
            Must(message.data.empty() || message.data.data() == bytes + kHeaderBytes);
        if constexpr (!std::is_same_v<Message, Incomplete> && !std::is_same_v<Message, Garbage>)
            Must(message.Size() <= size);
    };
    std::visit(liesWithin, ParseRequest(input));
    std::visit(liesWithin, ParseCommand(input));
    return 0;
}
