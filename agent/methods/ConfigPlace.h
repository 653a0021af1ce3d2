#ifndef TAVO_AGENT_CONFIG_PLACE_H
#define TAVO_AGENT_CONFIG_PLACE_H

#include "methods/Method.h"

namespace agent {

/// config.place: places a configuration file of an application, or of one of an application's
/// agents. Restarts the application, or stops the agent, so that it reads the file.
///
/// The library makes paths and shell commands of its arguments and checks nothing. So the
/// identifiers, the directory and the file are checked here. They must be plain names, without
/// anything that leaves the application's directory or that a shell interprets. The directory "bin"
/// is refused: it holds the application's programs, which a sender of configuration may not
/// replace.
class ConfigPlace : public Method {
public:
    ConfigPlace();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
