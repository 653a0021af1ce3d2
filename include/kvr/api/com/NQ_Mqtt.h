#ifndef KVR_API_COM_NQ_MQTT_H
#define KVR_API_COM_NQ_MQTT_H

#include <kvr/api/export.h>

#include <string>

#include <MQTTClient.h>

namespace kvr {
namespace api {
namespace com {

/// An MQTT publisher over Eclipse Paho's synchronous client, by TCP or TLS.
///
/// Order:   construct, setters and enableDebug(), initialise(), connect(), send() and subscribe(),
///          destroy. The order is not checked: before initialise(), subscribe() and send() hand a
///          null client to Paho, and may crash. Call no setter after initialise(), as Paho holds
///          pointers into the options.
/// Failure: results tell, and getLastResult() has Paho's code; nothing throws. connect() also
///          reports to the system log.
/// Texts:   bytes, up to their first NUL byte; topics must be UTF-8.
/// Threads: one at a time, except that the flag given to connect() is set by another thread.
class TAVO_API NQ_Mqtt {
public:
    /// Connection options.
    struct TConnOpts {
        int connectTimeout = 60; ///< seconds; also the limit of send() and of the final disconnect
        int retryInterval = 10;  ///< seconds
        int keepAliveInterval = 60; ///< seconds
        int reliable = 1;           ///< nonzero: one message at a time is in flight
        int cleansession = 0;       ///< Deliberate: 0, so that the broker keeps the session
        std::string port = "1883";  ///< port part of the broker's address
        std::string username;       ///< not sent when empty
        std::string password;       ///< not sent when empty
    };

    /// TLS options.
    struct TSslOpts {
        int enableServerCertAuth =
            0; ///< passed to Paho; exactly 1 also makes caCertFile the trust store
        int enableClientCertAuth = 0;    ///< exactly 1: the client's certificate and key are used
        std::string enabledCipherSuites; ///< OpenSSL cipher list; TLS is used when it is not empty
        std::string privateKeyPassword;  ///< not passed when empty
        std::string certDir;             ///< directory of the three files
        std::string caCertFile;          ///< made from certDir
        std::string clientCertFile;      ///< made from certDir
        std::string clientKeyFile;       ///< made from certDir
    };

    /// Last will, and the message that tells of a connection.
    struct TLwt {
        int qos = 0;                ///< of both messages
        int retained = 0;           ///< of both messages
        std::string topic;          ///< of both messages; empty: neither is used
        std::string message;        ///< published by the broker when this client vanishes
        std::string connectMessage; ///< published by this client after every successful connect()
    };

    /// `host` is the broker's name or address.
    NQ_Mqtt(std::string host, std::string clientId);

    /// Disconnects, waiting up to the connect timeout, and destroys Paho's client.
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

    /// Traces connecting on standard output.
    void enableDebug();
    /// Ends the tracing.
    void disableDebug();

    /// Makes Paho's client and fills its options. Always true. Called again, it leaks the first
    /// client.
    bool initialise();

    /// Tries until it is connected (true), or `keepTrying` is found false after a failed try and
    /// the pause of a second that follows it (false). A try takes up to the connect timeout. While
    /// the host is empty there are pauses only. The first failure and every 30th after it go to the
    /// system log (LOG_ERR), and the success (LOG_INFO). Then publishes the connected message
    /// without waiting for it. May be called again after a connection was lost.
    bool connect(bool& keepTrying);

    /// Publishes `payload` and waits for the completion, at most the connect timeout. True when the
    /// wait found nothing left to complete. Deliberate: whether Paho took the message is not looked
    /// at, so one that it refuses (a topic that is no UTF-8) counts as completed while connected.
    bool send(std::string topic, std::string payload, int qos, int retained);

    /// Subscribes; true when the broker agreed. No way to receive is offered.
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
