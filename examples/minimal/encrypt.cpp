// Encrypts a text, converts it to base64 and back, and decrypts it.

#include <kvr/api/crypto/NQ_Crypto.h>

#include <iostream>
#include <string>
#include <vector>

using kvr::api::crypto::NQ_Base64;
using kvr::api::crypto::NQ_Crypto;

int main() {
    NQ_Crypto crypto;
    std::vector<std::string> parts = {"serial-0815", "agent-7"}; // what both sides know
    crypto.init(parts);

    std::string text = "the port is 502";
    std::vector<unsigned char> secret(text.size() + 16); // room for the padding
    const int length = crypto.encrypt(reinterpret_cast<unsigned char*>(&text[0]),
                                      static_cast<int>(text.size()), secret.data());
    const std::string carried =
        NQ_Base64::base64_encode(std::string(secret.begin(), secret.begin() + length));
    std::cout << carried << '\n';

    // A wrong key or damaged bytes abort the process: decrypt only what is known to be intact.
    std::string received = NQ_Base64::base64_decode(carried);
    std::vector<unsigned char> plain(received.size());
    const int size = crypto.decrypt(reinterpret_cast<unsigned char*>(&received[0]),
                                    static_cast<int>(received.size()), plain.data());
    std::cout << std::string(plain.begin(), plain.begin() + size) << '\n';
    crypto.zeroize();
}
