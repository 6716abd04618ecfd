#include "update/signature.h"

#include <memory>
#include <openssl/evp.h>

namespace quonbrix {

bool isSignedBy(const QByteArray &data, const QByteArray &signature, const QByteArray &publicKey) {
    if (signature.size() != 64 || publicKey.size() != 32)
        return false;
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                    reinterpret_cast<const unsigned char *>(publicKey.constData()),
                                    size_t(publicKey.size())),
        &EVP_PKEY_free);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          &EVP_MD_CTX_free);
    if (!key || !context ||
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1)
        return false;
    // Ed25519 signs the whole message in one go; there is no streaming form.
    return EVP_DigestVerify(
               context.get(), reinterpret_cast<const unsigned char *>(signature.constData()),
               size_t(signature.size()), reinterpret_cast<const unsigned char *>(data.constData()),
               size_t(data.size())) == 1;
}

} // namespace quonbrix
