#pragma once

// The tray builds brixd's CA bundle in a short-lived child, the quonbrix-truststore helper,
// rather than in itself: parsing certificates maps Qt's TLS backend with libssl and libcrypto
// (about 4 MiB resident) into the process for the rest of its life, and the tray itself only
// ever speaks plain HTTP to 127.0.0.1.

#include "trust_store/trust_store.h"

#include <QProcessEnvironment>
#include <QString>
#include <chrono>
#include <optional>

namespace quonbrix::truststore {

inline constexpr char kHelperName[] = "quonbrix-truststore";

// The installed helper in ../libexec/quonbrix/ beside the executable, else one right next to it
// (a build tree).
std::optional<QString> locateHelper(const QString &applicationDir);

// Runs build() for `sources` in the helper found from `applicationDir` and returns the bundle's
// path, or absent when brixd should keep its own roots. The helper logs its outcome on our
// stderr. A helper that is missing, cannot start, fails, crashes, is still running after
// `timeout` (it is then killed) or answers with anything but the path of an existing file adds
// one warning of our own, and brixd keeps its own roots. Blocks until the helper is done: call it
// off the GUI thread.
std::optional<QString> buildInChild(const QString &applicationDir, const TrustStoreSources &sources,
                                    const QProcessEnvironment &environment,
                                    std::chrono::milliseconds timeout);

} // namespace quonbrix::truststore
