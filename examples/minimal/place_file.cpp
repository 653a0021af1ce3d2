// Places a configuration file for an application, and restarts the application.
// On a desktop: sandbox/run build/release/examples/minimal/place_file

#include <kvr/api/mng/NQ_Config.h>

#include <fstream>
#include <iostream>
#include <string>

int main() {
    const std::string content = R"({"portID":"2"})";
    kvr::api::mng::NQ_Config config; // applications live below /opt/apps
    config.init("ZEQ", "", "cfg", "ZEQ.json", content, false);
    if (!config.checkConfig())
        return 2;
    config.applyConfig(); // always true, also on a full disk: read the file back
    std::ifstream file(config.getConfigFile());
    std::string placed;
    if (!std::getline(file, placed) || placed != content) {
        std::cerr << config.getConfigFile() << " could not be written\n";
        return 1;
    }
    config.notifyAppRestart(); // /opt/apps/ZEQ/bin/run.sh restart
}
