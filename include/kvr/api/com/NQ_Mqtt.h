#ifndef KVR_API_COM_NQ_MQTT_H
#define KVR_API_COM_NQ_MQTT_H

#include <kvr/api/export.h>

#include <string>

#include <MQTTClient.h>

namespace kvr {
namespace api {
namespace com {

/// An MQTT publisher over Eclipse Paho's synchronous client, with TCP or TLS.
///
/// Order:      construct, setters and enableDebug(), initialise(), connect(), send() and
///             subscribe(), destroy. The order is not checked: before initialise(), subscribe() and
///             send() pass a null client to Paho and may crash. After a setter, call initialise()
///             again before anything else, as Paho holds pointers into the options.
/// Failure:    connect(), send() and subscribe() return false on failure; getLastResult() returns
///             Paho's code. Nothing throws. connect() also reports to the system log.
/// Keep-alive: the client sends nothing between calls. The broker disconnects a client that is
///             silent for 1.5 times `keepAliveInterval`, and publishes its will. So send more
///             often, choose a longer interval, or set it to 0, which disables the check.
/// TLS:        the host name in the broker's certificate is not checked: any certificate that the
///             same authority signed is accepted. Use an authority that signs the broker's only.
/// Texts:      bytes, up to their first NUL byte; topics must be UTF-8.
/// Threads:    one at a time. Another thread may clear the flag that was given to connect().
class TAVO_API NQ_Mqtt {
public:
    /// Connection options.
    struct TConnOpts {
        int connectTimeout = 60;    ///< seconds; also limits send()'s wait and the disconnect
        int retryInterval = 10;     ///< seconds
        int keepAliveInterval = 60; ///< seconds; 0: the broker never checks
        int reliable = 1;           ///< nonzero: one message at a time is in flight
        int cleansession = 0;       ///< Deliberate: 0, so that the broker keeps the session
        std::string port = "1883";  ///< port part of the broker's address
        std::string username;       ///< not sent when empty
        std::string password;       ///< not sent when empty
    };

    /// TLS options.
    struct TSslOpts {
        /// Passed to Paho, which verifies the broker's certificate unless it is 0. Exactly 1 also
        /// makes caCertFile the trust store.
        int enableServerCertAuth = 0;
        int enableClientCertAuth = 0;    ///< exactly 1: the client's certificate and key are used
        std::string enabledCipherSuites; ///< OpenSSL cipher list; TLS is used when it is not empty
        std::string privateKeyPassword;  ///< not passed when empty
        std::string certDir;             ///< directory of the three files
        std::string caCertFile;          ///< made from certDir
        std::string clientCertFile;      ///< made from certDir
        std::string clientKeyFile;       ///< made from certDir
    };

    /// Last will, and the message that announces a connection.
    struct TLwt {
        int qos = 0;                ///< of both messages
        int retained = 0;           ///< of both messages
        std::string topic;          ///< of both messages; empty: neither is used
        std::string message;        ///< the will; published by the broker when this client vanishes
        std::string connectMessage; ///< published by this client after every successful connect()
    };

    /// `host` is the broker's name or address.
    NQ_Mqtt(std::string host, std::string clientId);

    /// Disconnects, which takes up to the connect timeout, and destroys Paho's client.
    ~NQ_Mqtt();

    NQ_Mqtt(const NQ_Mqtt&) = delete;
    NQ_Mqtt& operator=(const NQ_Mqtt&) = delete;

    /// Sets the members of TConnOpts; times in seconds.
    void setConnOpts(std::string port, std::string username, std::string password,
                     int connectTimeout, int retryInterval, int keepAliveInterval, int reliable,
                     int cleansession);

    /// Sets the members of TSslOpts. The files are mqtt_ca-cert.crt, mqtt_client-cert.crt and
    /// mqtt_client-key.key in `certDir`.
    void setSslOpts(std::string enabledCipherSuites, std::string privateKeyPassword,
                    int enableServerCertAuth, int enableClientCertAuth, std::string certDir);

    /// Sets the members of TLwt.
    void setLwt(std::string topic, std::string message, std::string connectMessage, int qos,
                int retained);

    /// Prints the steps of initialise() and connect() on standard output from now on.
    void enableDebug();
    /// Stops that output.
    void disableDebug();

    /// Creates Paho's client and fills its options. Always returns true. May be called again, with
    /// setters in between. The call then leaks the earlier client: it stays connected under the
    /// same identifier until the broker drops it, and its will is published.
    bool initialise();

    /// Connects, and tries again until it succeeds (true) or `keepTrying` is false (false).
    ///
    /// The flag is read after each failed attempt and the pause of one second that follows it. An
    /// attempt takes up to the connect timeout. While the host is empty, the call only pauses. The
    /// system log receives the first failure and every 30th after it (LOG_ERR), and the success
    /// (LOG_INFO). After a success the call publishes the connected message without waiting for it.
    /// Call it again after a connection was lost: nothing else restores one.
    bool connect(bool& keepTrying);

    /// Publishes `payload` and waits for the broker's answer; returns true when nothing is left to
    /// wait for.
    ///
    /// Time:   at QoS 1 and 2 at least about 0.1 s. The wait itself lasts at most the connect
    ///         timeout. Before it, with `reliable` set, Paho may wait for an earlier message that
    ///         was never acknowledged: 72 s were measured.
    /// False:  does not mean "not delivered". The broker may have the message while its answer is
    ///         late or lost, so a repetition can be a duplicate.
    /// True:   Deliberate: Paho's result of publishing is not examined. A message that it refuses,
    ///         such as one with a topic that is not UTF-8, counts as completed while connected.
    bool send(std::string topic, std::string payload, int qos, int retained);

    /// Subscribes; returns true when the broker accepted the subscription. The class offers no way
    /// to receive messages.
    bool subscribe(std::string topic, int qos);

    /// Paho's code of the last attempt to connect, wait for a completion, or subscribe; 0 at first.
    int getLastResult() const;

    /// The broker's address, such as tcp://10.0.0.5:1883; empty before initialise().
    const std::string& getServerUri() const;

private:
    void fillConnection();
    void fillWill();
    void fillTls();
    void reportFailure(int attempt) const;
    void publishConnected();

    // The order is part of the binary interface.
    int lastResult;
    bool debug;
    std::string serverUri;
    std::string host;
    std::string clientId;
    // Paho's structures below hold pointers into the texts of these three, which must not change
    // after initialise().
    TConnOpts connOpts;
    TSslOpts sslOpts;
    TLwt lwt;
    MQTTClient_connectOptions pahoConnectOptions;
    MQTTClient_willOptions pahoWillOptions;
    MQTTClient_SSLOptions pahoSslOptions;
    MQTTClient client;
};

} // namespace com
} // namespace api
} // namespace kvr

#endif
