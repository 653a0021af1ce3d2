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
/// Wire:    each message is 4 bytes of payload length (unsigned, host byte order), then the
///          payload, any bytes. The server never sends. A length of 0 ends the connection.
/// Output:  everything that happens is printed on standard output.
/// Failure: a server that cannot be set up ends the process: perror() "socket", "bind" or "listen",
///          then exit(1). A failure on a connection is printed, and the connection abandoned.
/// Threads: loop() runs on the caller's thread and calls the observers there. No locks.
/// Signals: a handler that was installed without SA_RESTART makes the waiting call fail. The loop
///          then abandons the connection, and with it the client's messages.
///
/// Traps:
/// - The server takes each part with one recv() call. It delivers a payload that arrives in pieces
///   after the first piece, filled up with zero bytes. It reads the rest as the next length. Send a
///   message with one call, at most 32 KiB.
/// - The buffer for a payload is allocated before the payload arrives. Text that is read as a
///   length announces up to 4 GiB (3.8 GB were measured). Trust the clients, or limit the process's
///   memory.
/// - loop() replaces the listening socket of the constructor. A client that connects before loop()
///   is called is never served, and sees no error.
/// - The server serves one client at a time, without a time limit. A client that stays connected
///   and silent blocks all others.
/// - Deliberate: the server never closes the descriptors of clients or the listening socket. About
///   a thousand connections exhaust a default limit. accept() then fails repeatedly, and loop()
///   prints that at full speed.
/// - The directory /tmp/socketDDS is trusted. A user who creates it first controls the sockets in
///   it: create it as root when the system starts. The umask decides who may connect to the socket.
/// - The socket file outlives the server. The next server of that name replaces it without a
///   message.
class TAVO_API NQ_Sockets : public iot::Subject<NQ_Sockets> {
public:
    /// Creates the directory /tmp/socketDDS when it is missing. Listens on the socket file `name`
    /// in it, which replaces an existing one. May end the process (see above). An exception, such
    /// as that for a null `name`, is printed and swallowed. The whole path must stay within the 108
    /// bytes of a socket address; a longer one fails in bind().
    explicit NQ_Sockets(const char* name);

    /// Leaves the descriptors open and the socket file in place.
    ~NQ_Sockets() override;

    NQ_Sockets(const NQ_Sockets&) = delete;
    NQ_Sockets& operator=(const NQ_Sockets&) = delete;

    /// Creates a new listening socket on the path. May end the process (see above).
    void initSocketSrv();

    /// Creates a new listening socket, then serves connections until `stop` is true. The flag is
    /// read before the first connection and after each one. It interrupts neither the wait for a
    /// client nor a connection in progress: to end the loop, set the flag and connect once. An
    /// exception of an observer that is derived from std::exception is printed, and the connection
    /// abandoned; any other passes through.
    void loop(bool& stop);

    /// The most recent message; changes with the next one. For observers, in update().
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
