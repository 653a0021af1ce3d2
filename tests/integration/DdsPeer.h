#ifndef TAVO_TESTS_DDS_PEER_H
#define TAVO_TESTS_DDS_PEER_H

#include <string>

#include <sys/types.h>

namespace support {

/// Reserves a DDS domain that no other test on the machine uses, on the loopback interface only.
/// While the object exists, it is the default domain of this process and its children.
class ReservedDomain {
public:
    ReservedDomain();
    ~ReservedDomain();
    ReservedDomain(const ReservedDomain&) = delete;
    ReservedDomain& operator=(const ReservedDomain&) = delete;

    /// Moves the domain to another network interface. A participant that vanishes silently is only
    /// detected after a minute, longer than every deadline here. A departure seen before that was
    /// announced.
    void useInterface(const std::string& name);

    int id() const { return id_; }

private:
    int reservation_ = -1;
    int id_ = 0;
};

/// A participant in a separate process that watches the domain.
class DdsPeer {
public:
    /// Returns when the peer watches the domain.
    DdsPeer();
    ~DdsPeer();
    DdsPeer(const DdsPeer&) = delete;
    DdsPeer& operator=(const DdsPeer&) = delete;

    /// Returns the next event, "+ ID NAME" or "- ID", or "" after 30 seconds.
    std::string next();
    /// Waits for the next event, expects an arrival with this name, and returns the ID.
    std::string expectArrival(const std::string& name);
    /// Waits for the next event and expects the departure of `id`.
    void expectDeparture(const std::string& id);
    /// Ends the peer and returns the remaining events.
    std::string remaining();

private:
    void end();

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string unread_;
};

} // namespace support

#endif
