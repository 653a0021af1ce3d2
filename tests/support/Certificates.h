#ifndef TAVO_TESTS_CERTIFICATES_H
#define TAVO_TESTS_CERTIFICATES_H

#include "TempDir.h"

#include <string>

namespace support {

/// A certificate authority with certificates for a server and a client, made by the openssl tool.
/// The files of the authority and the client have the names that NQ_Mqtt expects.
class Certificates {
public:
    /// `serverName` is the subject alternative name of server.crt, in openssl's notation.
    explicit Certificates(const std::string& serverName = "IP:127.0.0.1");

    /// Creates `name`.key and `name`.crt, signed by the authority. `alternativeName` may be empty.
    void issue(const std::string& name, const std::string& commonName,
               const std::string& alternativeName) const;

    /// Returns broker settings for TLS with the certificate `server`.crt.
    std::string settings(bool clientMustShowCertificate,
                         const std::string& server = "server") const;

    TempDir directory;

private:
    void sign(const std::string& commonName, const std::string& alternativeName,
              const std::string& key, const std::string& certificate) const;
};

} // namespace support

#endif
