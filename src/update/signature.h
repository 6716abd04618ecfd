#pragma once

#include <QByteArray>

namespace quonbrix {

// Whether `signature` (64 raw bytes) is an Ed25519 signature of `data` by the holder of
// `publicKey` (32 raw bytes). Anything malformed is simply not a match.
bool isSignedBy(const QByteArray &data, const QByteArray &signature, const QByteArray &publicKey);

} // namespace quonbrix
