#include "Certificates.h"

#include "RunProgram.h"

#include <vector>

#include <gtest/gtest.h>

namespace support {
namespace {

const char kCurve[] = "ec_paramgen_curve:P-256"; // fast; generating RSA keys takes a second

void openssl(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"openssl"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ProgramResult ran = runProgram(command);
    ASSERT_EQ(0, ran.status) << ran.err;
}

} // namespace

Certificates::Certificates(const std::string& serverName) {
    openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", kCurve, "-nodes", "-days", "2", "-subj",
             "/CN=tavo test authority", "-keyout", directory / "ca.key", "-out",
             directory / "mqtt_ca-cert.crt"});
    issue("server", "broker", serverName);
    sign("gateway", "", directory / "mqtt_client-key.key", directory / "mqtt_client-cert.crt");
}

void Certificates::issue(const std::string& name, const std::string& commonName,
                         const std::string& alternativeName) const {
    sign(commonName, alternativeName, directory / (name + ".key"), directory / (name + ".crt"));
}

std::string Certificates::settings(bool clientMustShowCertificate,
                                   const std::string& server) const {
    return "allow_anonymous true\ncafile " + directory / "mqtt_ca-cert.crt" + "\ncertfile " +
           directory / (server + ".crt") + "\nkeyfile " + directory / (server + ".key") +
           "\nrequire_certificate " + (clientMustShowCertificate ? "true" : "false") + "\n";
}

void Certificates::sign(const std::string& commonName, const std::string& alternativeName,
                        const std::string& key, const std::string& certificate) const {
    const std::string request = certificate + ".csr";
    std::vector<std::string> extensions;
    if (!alternativeName.empty())
        extensions = {"-addext", "subjectAltName=" + alternativeName};
    std::vector<std::string> arguments = {"req",     "-newkey", "ec",    "-pkeyopt",
                                          kCurve,    "-nodes",  "-subj", "/CN=" + commonName,
                                          "-keyout", key,       "-out",  request};
    arguments.insert(arguments.end(), extensions.begin(), extensions.end());
    openssl(arguments);
    openssl({"x509", "-req", "-days", "2", "-in", request, "-CA", directory / "mqtt_ca-cert.crt",
             "-CAkey", directory / "ca.key", "-CAcreateserial", "-copy_extensions", "copy", "-out",
             certificate});
}

} // namespace support
