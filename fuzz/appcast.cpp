// The update feed's reader on any text: it never crashes, and an offer it finds is one that can
// be installed (a version, an http(s) or file URL, a positive length and a signature).

#include "update/appcast.h"
#include "fuzz_input.h"

#include <QUrl>

using namespace quonbrix;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto result = newestInAppcast(fuzz::bytesOf(data, size));
    if (const auto *offer = std::get_if<UpdateOffer>(&result)) {
        fuzz::require(!offer->version.isEmpty(), "an offer without a version");
        fuzz::require(offer->length > 0, "an offer without a length");
        fuzz::require(!offer->signature.isEmpty(), "an offer without a signature");
        const QString scheme = QUrl(offer->url).scheme();
        fuzz::require(scheme == u"https" || scheme == u"http" || scheme == u"file",
                      "an offer to download from elsewhere");
        // Version order is a total order on what feeds hold: a version equals itself.
        fuzz::require(compareVersions(offer->version, offer->version) == 0,
                      "a version that is not equal to itself");
    }
    return 0;
}
