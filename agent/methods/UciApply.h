#ifndef TAVO_AGENT_UCI_APPLY_H
#define TAVO_AGENT_UCI_APPLY_H

#include "methods/Method.h"

namespace agent {

/// uci.apply: changes one section of the gateway's configuration.
///
/// The library puts the section's text between single quotes into shell command lines and escapes
/// nothing. Text from outside with a single quote in it could run any command. So the text is
/// checked here: a single quote is refused anywhere. So is a package, section, type or option name
/// with a character that the tools do not take. The text for the library is built from the checked
/// parts only.
///
/// The configuration has other writers. So the section is read back, and the error names what
/// differs. The change is not repeated, which could undo another writer's. An anonymous section is
/// deleted only by its position and with its content in "expect". When it is deleted, its position
/// and its generated name both pass to the next section. A request that is sent twice would
/// otherwise delete two.
class UciApply : public Method {
public:
    UciApply();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
