#pragma once

// The way the bundle used to be cleaned: awk splits it into blocks and pipes each one into its
// own `openssl x509` process, all through /bin/sh. Kept for the tests and the benchmark, which
// hold the in-process cleaner to the same output and measure what it saves.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <optional>

namespace quonbrix::test {

// Both awk and openssl are on PATH.
bool opensslPipelineAvailable();

// Writes `raw` to `scratchPath`, runs the pipeline over it, deletes the scratch file and returns
// what the pipeline printed; absent when the shell could not be run or nothing came out.
std::optional<QByteArray> normalizeWithOpenSslPipeline(QByteArrayView raw,
                                                       const QString &scratchPath);

} // namespace quonbrix::test
