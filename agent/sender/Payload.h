#ifndef TAVO_AGENT_SENDER_PAYLOAD_H
#define TAVO_AGENT_SENDER_PAYLOAD_H

#include <string>

namespace agent {

/// What is sent as one message.
struct Payload {
    std::string label; ///< where it comes from, for messages
    std::string text;
    bool getsAnswer = false;
};

/// The content of `file`; standard input for "-". Throws std::runtime_error, with a reason for
/// people, when it cannot be read or sent.
Payload readPayload(const std::string& file);

/// Adds the member "answer": true to a request that has an id, and leaves all else as it is. A
/// request that has a member "answer" keeps its own. Throws std::runtime_error when the text is no
/// request, as its sender cannot be answered then.
void askForAnswer(Payload& payload);

} // namespace agent

#endif
