#ifndef TAVO_BENCH_FLOOR_SERVER_H
#define TAVO_BENCH_FLOOR_SERVER_H

#include <string>
#include <vector>

namespace bench::floor {

class Server;

class Listener {
public:
    virtual ~Listener();
    virtual void received(Server* server) = 0;
};

/// Receives messages with a length in front on a Unix-domain socket, and prints each step.
class Server {
public:
    Server(std::string path, Listener* listener);
    virtual ~Server();
    void loop(bool& stop);

    std::string lastMessage;

private:
    bool receive(int client);

    std::string path_;
    std::vector<Listener*> listeners_;
};

} // namespace bench::floor

#endif
