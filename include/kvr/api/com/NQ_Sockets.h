#ifndef KVR_API_COM_NQ_SOCKETS_H
#define KVR_API_COM_NQ_SOCKETS_H

#include <kvr/api/export.h>
#include <kvr/api/iot/Subject.h>

#include <string>

namespace kvr {
namespace api {
namespace com {

/// A Unix-domain stream server that takes length-prefixed messages from one client at a time and
/// announces each to its observers.
///
/// Wire:    per message 4 bytes of payload length (unsigned, host byte order), then the payload,
///          any bytes. Nothing is ever sent back. A length of 0 ends the connection. Each part is
///          taken by one recv() call: a payload that arrives in pieces is delivered after the first
///          piece, filled up with zero bytes, and its rest is taken for the next length. Send a
///          message with one call and keep it below the socket's buffer. A buffer of the announced
///          length is made before any of the payload has come, so every client is trusted with up
///          to 4 GiB of memory.
/// Output:  everything that happens is printed on standard output.
/// Failure: a server that cannot be set up ends the process: perror() "socket", "bind" or "listen",
///          then exit(1). What goes wrong on a connection is printed, and the connection abandoned.
/// Threads: loop() runs on the caller's thread and calls the observers there. No locks.
///
/// Deliberate: neither the descriptors of clients nor the listening socket are ever closed, so
/// about a thousand connections exhaust a default descriptor limit; accept() then fails over and
/// over, and loop() prints that at full speed. The socket file stays behind and is replaced at the
/// next start. The socket is as accessible as the process's umask makes it.
class TAVO_API NQ_Sockets : public iot::Subject<NQ_Sockets> {
public:
    /// Makes the directory /tmp/socketDDS when missing and listens on the socket file `name` in it,
    /// replacing one that is there. May end the process (see above). An exception, such as that for
    /// a null `name`, is printed and swallowed. The whole path must stay within the 108 bytes of a
    /// socket address; a longer one fails in bind().
    explicit NQ_Sockets(const char* name);

    /// Leaves the descriptors open and the socket file where it is.
    ~NQ_Sockets() override;

    NQ_Sockets(const NQ_Sockets&) = delete;
    NQ_Sockets& operator=(const NQ_Sockets&) = delete;

    /// Makes a fresh listening socket on the path. May end the process (see above).
    void initSocketSrv();

    /// Makes a fresh listening socket, then serves connections until `stop` is found true. The flag
    /// is looked at before the first connection and after each one; it interrupts neither the wait
    /// for a client nor a connection in progress. An exception that is not derived from
    /// std::exception passes through.
    void loop(bool& stop);

    /// The most recent complete message; changes with the next one. For observers, in update().
    const std::string& getLastMessage() const;

private:
    void serveOneConnection();
    bool receiveMessage(int client);

    // The order is part of the binary interface.
    std::string socketPath;
    int serverFd;
    std::string reserved;
    std::string lastMessage;
};

} // namespace com
} // namespace api
} // namespace kvr

#endif
