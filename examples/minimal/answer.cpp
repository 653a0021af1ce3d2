// Answers local requests over MQTT, since the socket returns nothing. Usage: answer [BROKER_PORT]

#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/iot/Subject.h>

using kvr::api::com::NQ_Mqtt;
using kvr::api::com::NQ_Sockets;
using kvr::api::data::NQ_JSON;

class Answerer : public kvr::api::iot::Observer<NQ_Sockets> {
public:
    Answerer(NQ_Mqtt& mqtt, bool& stop) : mqtt_(mqtt), stop_(stop) {}
    void update(NQ_Sockets* server) override {
        const NQ_JSON request(server->getLastMessage());
        NQ_JSON answer;
        answer.addKeyVal("id", request.get_json_string("id")); // repeated for the caller
        answer.addKeyVal("result", "done");
        mqtt_.send("minimal/answers", answer.asString(), 1, 0);
        stop_ = request.get_json_string("method") == "stop";
    }

private:
    NQ_Mqtt& mqtt_;
    bool& stop_;
};

int main(int argc, char** argv) {
    NQ_Mqtt mqtt("127.0.0.1", "minimal-answer");
    mqtt.setConnOpts(argc > 1 ? argv[1] : "1883", "", "", 5, 1, 60, 1, 1);
    mqtt.initialise();
    bool keepTrying = true;
    mqtt.connect(keepTrying);
    bool stop = false;
    Answerer answerer(mqtt, stop);
    NQ_Sockets server("minimal");
    server.attach(&answerer);
    server.loop(stop);
}
