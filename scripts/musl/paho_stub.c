// In place of Eclipse Paho where it is not available for musl: programs link, and every call reports failure. The
// unit tests bring a Paho of their own; what needs a broker cannot run with this one.
#include <MQTTClient.h>

int MQTTClient_create(MQTTClient* handle, const char* serverURI, const char* clientId, int persistence_type,
                      void* persistence_context) {
    (void)serverURI, (void)clientId, (void)persistence_type, (void)persistence_context;
    *handle = NULL;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_connect(MQTTClient handle, MQTTClient_connectOptions* options) {
    (void)handle, (void)options;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_disconnect(MQTTClient handle, int timeout) {
    (void)handle, (void)timeout;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_subscribe(MQTTClient handle, const char* topic, int qos) {
    (void)handle, (void)topic, (void)qos;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_publishMessage(MQTTClient handle, const char* topicName, MQTTClient_message* msg,
                              MQTTClient_deliveryToken* dt) {
    (void)handle, (void)topicName, (void)msg, (void)dt;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_waitForCompletion(MQTTClient handle, MQTTClient_deliveryToken dt, unsigned long timeout) {
    (void)handle, (void)dt, (void)timeout;
    return MQTTCLIENT_FAILURE;
}

void MQTTClient_destroy(MQTTClient* handle) { *handle = NULL; }
