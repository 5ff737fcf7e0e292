#include "vscsim/usbip_session.h"

#include "fuzz.h"

#include <algorithm>
#include <array>

using namespace vscsim;
using namespace std::chrono_literals;

namespace {

void Fetch(UsbIpSession &session, Time now)
{
    while (session.HasUnsent()) {
        const auto parts = session.Unsent();
        Must(parts[0].size() + parts[1].size() > 0);
        session.Sent(parts[0].size() + parts[1].size(), now);
    }
}

} // namespace

// A client that says anything, in pieces, to a camera that it attached or not.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    constexpr const char *kModels[] = {"VSC470MM-Cool", "VSC340MM", "VSC048MC", "VSC2800MM"};
    Decisions decisions({bytes, size}, Decisions::From::End);
    const ModelFacts &model = *FindModel(kModels[decisions.Byte() % std::size(kModels)]);
    UsbIpCameras cameras;
    cameras.push_back(std::make_unique<UsbIpCamera>(model, CameraOptions(), 1, 3s));
    UsbIpSession session(cameras);
    Time now = 1s;
    if (decisions.Flag()) {
        std::array<uint8_t, usbip::AttachRequest::Size()> attach{0x01, 0x11, 0x80, 0x03};
        std::ranges::copy(cameras[0]->Described().busId, attach.begin() + 8);
        session.Receive(attach, now);
        Must(session.Attached() != nullptr);
    }
    for (std::span rest(bytes, size); !rest.empty() && session.Listens() && !session.Over();) {
        const std::span piece = rest.first(std::min<size_t>(rest.size(), decisions.Byte() + 1U));
        rest = rest.subspan(piece.size());
        session.Receive(piece, now);
        now += std::chrono::milliseconds(decisions.Byte());
        Must(session.Advance(now) > now);
        Fetch(session, now);
    }
    return 0;
}
