#include "server/bayeux/Secrets.hpp"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <stdexcept>
#include <vector>

namespace server::bayeux {

std::string randomHex(std::size_t bytes) {
    std::vector<unsigned char> random(bytes);
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
        throw std::runtime_error("the random number generator has no seed");
    }
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : random) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0xF];
    }
    return hex;
}

bool equalInConstantTime(std::string_view given, std::string_view secret) {
    // Digests are of one length, so that not even the secret's length shows.
    const auto digest = [](std::string_view text) {
        std::vector<unsigned char> bytes(SHA256_DIGEST_LENGTH);
        SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), bytes.data());
        return bytes;
    };
    return CRYPTO_memcmp(digest(given).data(), digest(secret).data(), SHA256_DIGEST_LENGTH) == 0;
}

}  // namespace server::bayeux
