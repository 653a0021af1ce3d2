#ifndef TAVO_AGENT_UCI_APPLY_H
#define TAVO_AGENT_UCI_APPLY_H

#include "methods/Method.h"

namespace agent {

/// uci.apply: changes one section of the gateway's configuration.
///
/// The library puts the section's text between single quotes into shell command lines and quotes
/// nothing itself: with a single quote in it, text from outside could run any command. So this is
/// where it is checked. A single quote in what the library gets, and a package, section, type or
/// option name with a character that the tools do not take, is refused before the library sees it.
/// What the library gets is written from what was checked.
///
/// The configuration has other writers. So the section is read back, and the error names what
/// differs. The change is not repeated, which could undo another writer's. An anonymous section is
/// deleted only by its position and with its content in "expect": both its position and its
/// generated name pass to the next section when it is deleted, so that a request sent twice would
/// delete two.
class UciApply : public Method {
public:
    UciApply();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
