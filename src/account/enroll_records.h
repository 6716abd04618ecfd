#pragma once

// What a sign-in shows while it runs. Each record lists its JSON keys once, in `fields()`.

#include <QString>
#include <optional>

namespace quonbrix {

// The code the user confirms in the browser, and the page to confirm it on.
struct EnrollPrompt {
    QString userCode;
    QString verificationUri;
    std::optional<QString> verificationUriComplete;
    qint64 expiresIn = 0;

    bool operator==(const EnrollPrompt &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("userCode", s.userCode);
        v("verificationUri", s.verificationUri);
        v("verificationUriComplete", s.verificationUriComplete);
        v("expiresIn", s.expiresIn);
    }
};

// A sign-in's progress as the status model publishes it.
struct EnrollProgress {
    QString state; // "pending", "done" or "error"
    std::optional<EnrollPrompt> prompt;
    std::optional<QString> error;
    bool enrolled = false;

    bool operator==(const EnrollProgress &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("state", s.state);
        v("prompt", s.prompt);
        v("error", s.error);
        v("enrolled", s.enrolled);
    }
};

// What the sign-in helper prints for the tray, one a line: exactly one member set.
struct EnrollEvent {
    std::optional<EnrollPrompt> prompt;
    std::optional<bool> done;
    std::optional<QString> error;

    bool operator==(const EnrollEvent &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("prompt", s.prompt);
        v("done", s.done);
        v("error", s.error);
    }
};

} // namespace quonbrix
