#ifndef TAVO_BENCH_FLOOR_MQTT_H
#define TAVO_BENCH_FLOOR_MQTT_H

#include <string>

namespace bench::floor {

/// Publishes through Paho's synchronous client, and waits for each message.
class Mqtt {
public:
    Mqtt(const std::string& uri, const std::string& clientId);
    ~Mqtt();
    bool send(std::string topic, std::string payload, int qos, int retained);

private:
    void* client_ = nullptr;
};

} // namespace bench::floor

#endif
