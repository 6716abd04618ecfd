// The account API's answers to a sign-in, as any HTTP status and body: /device/start gives a
// code, a page and sane timing or nothing, and every /device/poll answer ends in a decision.
// The first byte picks the HTTP status, the rest is the body.

#include "account/device_flow_enroller.h"
#include "fuzz_input.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <array>

using namespace quonbrix;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    static constexpr std::array statuses{200, 400, 401, 403, 429, 500};
    const int status = statuses[data[0] % statuses.size()];
    const QJsonObject answer = QJsonDocument::fromJson(fuzz::bytesOf(data + 1, size - 1)).object();

    if (const std::optional<deviceflow::Started> start = deviceflow::readStart(answer)) {
        fuzz::require(start->intervalSeconds >= 1, "a poll interval under a second");
        const Environment env(
            {{QStringLiteral("QUON_CONSOLE_URL"), QStringLiteral("http://127.0.0.1:8512")}});
        DeviceFlowEnroller::rewriteVerificationForLocalDev(
            start->page, QStringLiteral("http://127.0.0.1:8512"), start->userCode, env);
    }
    const deviceflow::PollAnswer poll = deviceflow::readPoll(status, answer);
    fuzz::require(poll.kind != deviceflow::PollAnswer::Kind::Approved || status == 200,
                  "tokens taken from an error answer");
    fuzz::require(poll.kind != deviceflow::PollAnswer::Kind::Failed || !poll.message.isEmpty(),
                  "a failed sign-in without a message");
    return 0;
}
