#ifndef TAVO_AGENT_CONFIG_PLACE_H
#define TAVO_AGENT_CONFIG_PLACE_H

#include "methods/Method.h"

namespace agent {

/// config.place: places a configuration file of an application, or of one of an application's
/// agents. Restarts the application, or stops the agent, so that it reads the file.
///
/// The library builds paths and shell commands from its arguments and checks nothing. So this class
/// checks the identifiers, the directory and the file. They must be plain names that cannot leave
/// the application's directory and that a shell does not interpret. The directory "bin" is refused:
/// it holds the application's programs, which a sender of configuration may not replace.
class ConfigPlace : public Method {
public:
    ConfigPlace();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
