#pragma once

// What the popover says about the cloud account: the header's "Sign in", the sign-in panel
// while a sign-in runs or after it failed, and the sign-out confirmation.

#include "app/status_model.h"
#include "popover_link/popover_records.h"

namespace quonbrix {

bool isSignedIn(const std::optional<DaemonStatus> &status);
view::Button headerSignInButton(const std::optional<EnrollProgress> &progress);
view::SignIn signInPanel(const std::optional<EnrollProgress> &progress);
view::SignOut signOutConfirmation();

} // namespace quonbrix
