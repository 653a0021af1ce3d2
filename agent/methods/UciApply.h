#ifndef TAVO_AGENT_UCI_APPLY_H
#define TAVO_AGENT_UCI_APPLY_H

#include "methods/Method.h"

namespace agent {

/// uci.apply: changes one section of the gateway's configuration.
///
/// The library puts the section's text between single quotes into shell command lines and escapes
/// nothing. Text from outside with a single quote in it could run any command. So this class
/// refuses a single quote anywhere. It also refuses a package, section, type or option name with a
/// character that the tools do not accept. The text for the library is built from the checked parts
/// only.
///
/// Other programs change the configuration, too. So the agent reads the section back, and the error
/// names the options that differ. It does not repeat the change, as that could undo another
/// program's change.
///
/// When an anonymous section is deleted, the next section gets its position and its generated name.
/// A request that is sent twice would then delete two sections. So the agent deletes such a section
/// only by its position, and only with its content in "expect".
class UciApply : public Method {
public:
    UciApply();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
