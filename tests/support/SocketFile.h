#ifndef TAVO_TESTS_SOCKET_FILE_H
#define TAVO_TESTS_SOCKET_FILE_H

#include <string>

namespace support {

/// Removes a server's socket file, and its directory when nothing else is in it.
void removeSocketFile(const std::string& path);

/// The socket file of the server `name`, /tmp/socketDDS/NAME. Creates nothing. The destructor calls
/// removeSocketFile().
class SocketFile {
public:
    explicit SocketFile(const std::string& name) : name_(name), path_("/tmp/socketDDS/" + name) {}
    ~SocketFile() { removeSocketFile(path_); }
    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

    const char* name() const { return name_.c_str(); }
    const std::string& path() const { return path_; }

    /// Connects to the server. Returns the client's descriptor, which the caller closes, or -1.
    int connect() const;

private:
    std::string name_;
    std::string path_;
};

/// Sends `payload` after its length. Returns false when the server has closed the connection.
bool sendMessage(int client, const std::string& payload);

} // namespace support

#endif
