#ifndef TAVO_AGENT_UCI_APPLY_H
#define TAVO_AGENT_UCI_APPLY_H

#include "methods/Method.h"

namespace agent {

/// uci.apply: changes one section of the gateway's configuration.
///
/// The library puts the section's text between single quotes into shell command lines and quotes
/// nothing itself: with a single quote in it, text from outside could run any command. So this is
/// where it is checked. A single quote anywhere, and a package, section, type or option name with
/// anything but letters, digits, '_' and '-', is refused before the library sees it, and what the
/// library gets is written anew from what was checked.
class UciApply : public Method {
public:
    UciApply();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
