#ifndef TAVO_TESTS_DDS_PEER_H
#define TAVO_TESTS_DDS_PEER_H

#include <string>

#include <sys/types.h>

namespace support {

/// A DDS domain that no other test on the machine is in, confined to the loopback interface, as the
/// default domain of this process and its children while it lives.
class OwnDomain {
public:
    OwnDomain();
    ~OwnDomain();
    OwnDomain(const OwnDomain&) = delete;
    OwnDomain& operator=(const OwnDomain&) = delete;

    /// The same domain through another network interface. Participants that vanish without a word
    /// are missed after a minute only, long after every deadline here: who is seen to leave has
    /// said so.
    void useInterface(const std::string& name);

    int id() const { return id_; }

private:
    int reservation_ = -1;
    int id_ = 0;
};

/// A participant in another process that watches the domain.
class DdsPeer {
public:
    /// Returns when it watches.
    DdsPeer();
    ~DdsPeer();
    DdsPeer(const DdsPeer&) = delete;
    DdsPeer& operator=(const DdsPeer&) = delete;

    /// The next event, "+ ID NAME" or "- ID"; waits for up to ten seconds, "" then.
    std::string next();
    /// Waits for the next event, expects that somebody came, checks the name, and gives the ID.
    std::string expectArrival(const std::string& name);
    /// Waits for the next event and expects that `id` left.
    void expectDeparture(const std::string& id);
    /// Ends the peer and gives the events that nobody took.
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
