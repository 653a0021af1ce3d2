#ifndef TAVO_AGENT_CONFIG_PLACE_H
#define TAVO_AGENT_CONFIG_PLACE_H

#include "methods/Method.h"

namespace agent {

/// config.place: places a configuration file of an application, or of one of an application's
/// agents, and has it taken up.
///
/// The library makes paths and shell commands of what it is given and checks nothing. So the
/// identifiers, the directory and the file are checked here: plain names, nothing that could leave
/// the application's directory or that a shell would interpret. The directory "bin" is refused, as
/// it holds the application's programs: who may send configuration may not replace those.
class ConfigPlace : public Method {
public:
    ConfigPlace();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
