// Receives messages from other processes of this gateway, until one is "stop". socket_sender.cpp is
// the other end.

#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/iot/Subject.h>

#include <iostream>

using kvr::api::com::NQ_Sockets;

class Printer : public kvr::api::iot::Observer<NQ_Sockets> {
public:
    explicit Printer(bool& s) : stop(s) {}
    void update(NQ_Sockets* server) override {
        std::cout << "got \"" << server->getLastMessage() << "\"\n";
        stop = server->getLastMessage() == "stop"; // read when the connection ends
    }

private:
    bool& stop;
};

int main() {
    bool stop = false;
    Printer printer(stop);
    NQ_Sockets server("minimal"); // listens on /tmp/socketDDS/minimal, or ends the process
    server.attach(&printer);
    server.loop(stop);
}
