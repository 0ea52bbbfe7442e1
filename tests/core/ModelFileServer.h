#pragma once

#include <openssl/evp.h>

#include <string>

#include "tests/support/LoopbackHttpServer.h"

namespace kelvo::testing {

/// The loopback server, serving a model file to the installer.
using ModelFileServer = test::LoopbackHttpServer;

// A digest of data in lower-case hex, as model catalogues publish it; computed here with OpenSSL
// directly so that tests of the installer do not take the installer's word for it.
inline std::string hexDigest(const std::string& data, const EVP_MD* algorithm) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), bytes, &length, algorithm, nullptr);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += "0123456789abcdef"[bytes[i] >> 4];
        hex += "0123456789abcdef"[bytes[i] & 15];
    }
    return hex;
}

inline std::string sha1Of(const std::string& data) {
    return hexDigest(data, EVP_sha1());
}

}  // namespace kelvo::testing
