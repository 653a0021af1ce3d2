// Replaces Eclipse Paho, which is not available for musl here. Its clients never reach a broker:
// connecting fails, and so does all that needs a connection. The unit tests use their own fake Paho;
// tests with a broker cannot run.
#include <MQTTClient.h>

#include <stdlib.h>

int MQTTClient_create(MQTTClient* handle, const char* serverURI, const char* clientId,
                      int persistence_type, void* persistence_context) {
    (void)serverURI, (void)clientId, (void)persistence_type, (void)persistence_context;
    *handle = malloc(1); // callers do not follow it; Paho's own client fails without memory, too
    return *handle != NULL ? MQTTCLIENT_SUCCESS : MQTTCLIENT_FAILURE;
}

void MQTTClient_destroy(MQTTClient* handle) {
    free(*handle);
    *handle = NULL;
}

int MQTTClient_connect(MQTTClient handle, MQTTClient_connectOptions* options) {
    (void)handle, (void)options;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_disconnect(MQTTClient handle, int timeout) {
    (void)handle, (void)timeout;
    return MQTTCLIENT_DISCONNECTED;
}

int MQTTClient_isConnected(MQTTClient handle) {
    (void)handle;
    return 0;
}

int MQTTClient_subscribe(MQTTClient handle, const char* topic, int qos) {
    (void)handle, (void)topic, (void)qos;
    return MQTTCLIENT_DISCONNECTED;
}

int MQTTClient_publishMessage(MQTTClient handle, const char* topicName, MQTTClient_message* msg,
                              MQTTClient_deliveryToken* dt) {
    (void)handle, (void)topicName, (void)msg, (void)dt;
    return MQTTCLIENT_DISCONNECTED;
}

int MQTTClient_waitForCompletion(MQTTClient handle, MQTTClient_deliveryToken dt,
                                 unsigned long timeout) {
    (void)handle, (void)dt, (void)timeout;
    return MQTTCLIENT_FAILURE;
}

int MQTTClient_getPendingDeliveryTokens(MQTTClient handle, MQTTClient_deliveryToken** tokens) {
    (void)handle;
    *tokens = NULL;
    return MQTTCLIENT_SUCCESS;
}

int MQTTClient_receive(MQTTClient handle, char** topicName, int* topicLen,
                       MQTTClient_message** message, unsigned long timeout) {
    (void)handle, (void)timeout;
    *topicName = NULL;
    *topicLen = 0;
    *message = NULL;
    return MQTTCLIENT_DISCONNECTED;
}

void MQTTClient_free(void* ptr) { free(ptr); }

void MQTTClient_freeMessage(MQTTClient_message** msg) {
    free((*msg)->payload);
    free(*msg);
    *msg = NULL;
}
