#pragma once

// The CA bundle handed to brixd through SSL_CERT_FILE. brixd is a Bun executable and trusts
// only Bun's built-in roots unless pointed at a PEM file, so behind a TLS-inspecting proxy its
// connections to the account API fail. We give it either the inspection agent's own combined
// bundle or a clean copy of the system bundle plus the user's extra anchors.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>
#include <optional>

namespace quonbrix {

// Where the bundle's certificates come from and where the result goes. Tests point every
// entry at files of their own.
struct TrustStoreSources {
    // Combined bundles written by TLS-inspection agents; the first with enough certificates is
    // used as it is.
    QStringList itBundles;
    // Candidate locations of the distribution's bundle; only the first that exists is read.
    QStringList systemBundles;
    // Directory of extra anchors the user trusts (*.pem and *.crt, read in name order).
    QString extraAnchorsDir;
    // Directory the bundle is written to (created 0700 when missing, never its parents).
    QString outputDir;

    // The usual places, with the user's own files under `privateDir` (~/.quon-brix).
    static TrustStoreSources forPrivateDir(const QString &privateDir);

    // The helper's command line: one option per path, so no path is ever split or joined.
    QStringList toArguments() const;
    // Absent for anything toArguments() cannot have produced.
    static std::optional<TrustStoreSources> fromArguments(const QStringList &args);
};

namespace truststore {

// A bundle with fewer certificates than this is assumed to be broken or partial: brixd is then
// better off with Bun's own roots.
inline constexpr int kMinimumCertificates = 50;

inline constexpr char kFileName[] = "trust-store.pem";

// Number of "-----BEGIN CERTIFICATE-----" markers, wherever they stand.
int certificateCount(QByteArrayView pem);

// Re-encodes every PEM certificate block of `raw` as clean PEM, block by block, dropping any
// block that does not parse. Blocks are gathered the way a line-based reader does: from a line
// that contains the BEGIN marker to the next line that contains the END marker. Absent when no
// block survives.
std::optional<QByteArray> normalizeCerts(QByteArrayView raw);

// Builds the bundle and returns its path, or absent when brixd should keep its own roots.
// Logs its outcome once under quonbrix.truststore. Blocks for as long as reading a few files
// takes; callers cache the result for the run.
std::optional<QString> build(const TrustStoreSources &sources);

} // namespace truststore
} // namespace quonbrix
