#ifndef TAVO_AGENT_SENDER_PAYLOAD_H
#define TAVO_AGENT_SENDER_PAYLOAD_H

#include <string>

namespace agent {

/// What is sent as one message.
struct Payload {
    std::string label; ///< its source, for messages
    std::string text;
    bool getsAnswer = false;
};

/// The content of `file`; standard input for "-". Throws std::runtime_error, with a readable
/// reason, when it cannot be read or sent.
Payload readPayload(const std::string& file);

/// Adds the member "answer": true to a request that has an id, and leaves the rest unchanged. A
/// request that has a member "answer" keeps it. Throws std::runtime_error when the text is not a
/// request, since its sender can then get no answer.
void askForAnswer(Payload& payload);

} // namespace agent

#endif
