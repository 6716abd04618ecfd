// The trust store's PEM cleaner on any bundle text: it never crashes, and what it gives back is
// clean PEM that comes through the cleaner unchanged, one block a certificate.

#include "fuzz_input.h"
#include "trust_store/trust_store.h"

#include <QCoreApplication>

using namespace quonbrix;

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    // Qt loads its TLS backend only with an application object.
    new QCoreApplication(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const QByteArray raw = fuzz::bytesOf(data, size);
    const std::optional<QByteArray> clean = truststore::normalizeCerts(raw);
    truststore::certificateCount(raw);
    if (!clean)
        return 0;
    fuzz::require(truststore::certificateCount(*clean) > 0, "a cleaned bundle without blocks");
    fuzz::require(truststore::normalizeCerts(*clean) == clean, "cleaning clean PEM changed it");
    return 0;
}
