// Publishes a reading over TLS. The broker publishes the last will when this client vanishes.
// Usage: publish HOST PORT CERTIFICATE_DIRECTORY

#include <kvr/api/com/NQ_Mqtt.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4)
        return 2;
    kvr::api::com::NQ_Mqtt mqtt(argv[1], "minimal-publish");
    // User, password; seconds: connect timeout, retry, keep-alive; one message in flight; a clean
    // session.
    mqtt.setConnOpts(argv[2], "", "", 30, 1, 60, 1, 1);
    // A cipher list enables TLS. The directory holds mqtt_ca-cert.crt, mqtt_client-cert.crt and
    // mqtt_client-key.key. The host name in the broker's certificate is not checked.
    mqtt.setSslOpts("HIGH", "", 1, 1, argv[3]);
    mqtt.setLwt("minimal/state", "offline", "online", 1, 1); // QoS 1, retained
    mqtt.initialise();
    bool keepTrying = false; // one attempt
    if (!mqtt.connect(keepTrying)) {
        std::cerr << "cannot connect to " << mqtt.getServerUri() << '\n';
        return 1;
    }
    const bool sent = mqtt.send("minimal/temperature", "21.5", 1, 0);
    mqtt.send("minimal/state", "offline", 1, 1); // the will is not published after a disconnect
    return sent ? 0 : 1;
}
