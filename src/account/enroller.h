#pragma once

#include "account/enroll_records.h"

#include <QString>
#include <functional>

namespace quonbrix {

// Something that signs this computer in: the device flow itself, or a process running it.
class Enroller {
public:
    virtual ~Enroller() = default;
    // Starts a sign-in, cancelling one that runs. Exactly one of `onDone` and `onError` is
    // called at the end, after `onPrompt` once the code is known; a cancelled run calls nothing.
    virtual void run(std::function<void(const EnrollPrompt &)> onPrompt,
                     std::function<void()> onDone,
                     std::function<void(const QString &message)> onError) = 0;
    virtual void cancel() = 0;
};

} // namespace quonbrix
